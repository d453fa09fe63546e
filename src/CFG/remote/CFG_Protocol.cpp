#include <CFG/CFG_Protocol.h>

#include <algorithm>
#include <array>

namespace cfg::protocol {

namespace {

// Row numbers in the order of the names.
constexpr auto by_name = [] {
  std::array<uint8_t, COMMAND_COUNT> order{};
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint8_t>(i);
  std::sort(order.begin(), order.end(), [](uint8_t a, uint8_t b) {
    return std::string_view(ROWS[a].name) < std::string_view(ROWS[b].name);
  });
  return order;
}();

}  // namespace

const CommandRow* find_command(std::string_view name) {
  const auto found = std::lower_bound(
      by_name.begin(), by_name.end(), name,
      [](uint8_t row, std::string_view wanted) { return ROWS[row].name < wanted; });
  return found != by_name.end() && ROWS[*found].name == name ? &ROWS[*found] : nullptr;
}

}  // namespace cfg::protocol
