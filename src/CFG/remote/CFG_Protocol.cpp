#include <CFG/CFG_Protocol.h>

#include <algorithm>
#include <array>

namespace cfg::protocol {

namespace {

using enum Argument;
using enum Effect;
using C = Command;
using R = Reply;

constexpr bool TOKEN = true, COUNTED = true;

// clang-format off
constexpr CommandRow rows[] = {
    {"CFG_LOCK", C::LOCK, {}, R::SUCCESS_CODE, SESSION, !TOKEN, !COUNTED},
    {"CFG_UNLOCK", C::UNLOCK, {}, R::SUCCESS_CODE, SESSION, !TOKEN, !COUNTED},
    {"CFG_ROLLBACK", C::ROLLBACK, {}, R::SUCCESS_CODE, SESSION, TOKEN, !COUNTED},
    {"CFG_ENABLE_EXTENDED_TIMEOUT", C::ENABLE_EXTENDED_TIMEOUT, {}, R::NOTHING, SESSION, !TOKEN, !COUNTED},
    {"CFG_DISABLE_EXTENDED_TIMEOUT", C::DISABLE_EXTENDED_TIMEOUT, {}, R::NOTHING, SESSION, !TOKEN, !COUNTED},
    {"CFG_SET_VALUE", C::SET_VALUE, {PATH, VALUE}, R::SUCCESS_CODE, CHANGES, TOKEN, !COUNTED},
    {"CFG_DEL_VAL", C::DEL_VAL, {PATH}, R::SUCCESS_CODE, CHANGES, TOKEN, !COUNTED},
    {"CFG_DEL_SUB", C::DEL_SUB, {PATH}, R::SUCCESS_CODE, CHANGES, TOKEN, !COUNTED},
    {"CFG_WRITE_SUB", C::WRITE_SUB, {SUBTREE, PATH}, R::SUCCESS_CODE, CHANGES, TOKEN, COUNTED},
    {"CFG_GET_VAL", C::GET_VAL, {PATH}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_VAL_INX", C::GET_VAL_INX, {PATH, INDEX}, R::STRING, READS, !TOKEN, !COUNTED},
    {"CFG_GET_VAL_NAME", C::GET_VAL_NAME, {PATH, INDEX}, R::STRING, READS, !TOKEN, !COUNTED},
    {"CFG_GET_VAL_NUM", C::GET_VAL_NUM, {PATH}, R::NUMBER, READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_NUM", C::GET_SUB_NUM, {PATH}, R::NUMBER, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_ENTRIES_COUNT", C::GET_SUB_ENTRIES_COUNT, {PATH}, R::NUMBER, READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_EXISTS", C::GET_SUB_EXISTS, {PATH}, R::SUCCESS_CODE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_PATHS", C::GET_SUB_PATHS, {PATH}, R::LIST, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_TREE_VALUES", C::GET_SUB_TREE_VALUES, {PATH}, R::PATH_VALUES, READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_INX", C::GET_SUB_INX, {PATH, INDEX}, R::SUBTREE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_MERGE", C::GET_SUB_MERGE, {PATH, RULES, MERGE}, R::SUBTREE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_TREE_ONLY_WITH_VALUES", C::GET_SUB_TREE_ONLY_WITH_VALUES, {PATH, RULES, MERGE}, R::SUBTREE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_LONG_VALUE", C::GET_SUB_LONG_VALUE, {PATH}, R::SUBTREE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_LONG_VALUE_WILDCARD", C::GET_SUB_LONG_VALUE_WILDCARD, {PATH}, R::SUBTREE, READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_WITH_VALUE_PRECENT_WILDCARD", C::GET_SUB_WITH_VALUE_PRECENT_WILDCARD, {PATH}, R::SUBTREE, READS, !TOKEN, !COUNTED},
    {"CFG_GET_SUB_SEQ", C::GET_SUB_SEQ, {PATH, SEQ_NUMBER, COMPRESSED}, R::TREE, READS, !TOKEN, COUNTED},
    {"CFG_GET_SUB_DEL_SEQ", C::GET_SUB_DEL_SEQ, {PATH, SEQ_NUMBER, COMPRESSED}, R::TREE, READS, !TOKEN, !COUNTED},
    {"CFG_GET_VALUE_BY_SEARCH_RULE", C::GET_VALUE_BY_SEARCH_RULE, {VALUE_NAME, RULES}, R::FOUND_VALUE, READS, !TOKEN, COUNTED},
    {"CFG_FILL_PATH", C::FILL_PATH, {PATH}, R::LIST, READS, !TOKEN, COUNTED},
    {"CFG_FILL_PATH_NAME_VALUE", C::FILL_PATH_NAME_VALUE, {PATH, VALUE_NAME, VALUE}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_NODE_NAME", C::GET_NODE_NAME, {PATH}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_NODE_NAME_BY_IP", C::GET_NODE_NAME_BY_IP, {PATH}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_SERV_NODE_NAME", C::SERV_NODE_NAME, {}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_MAX_SEQ", C::GET_MAX_SEQ, {}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_MAX_SEQ_PATH", C::GET_MAX_SEQ_PATH, {PATH}, R::STRING, READS, !TOKEN, !COUNTED},
    {"CFG_GET_DEL_MIN_SEQ", C::GET_DEL_MIN_SEQ, {}, R::STRING, READS, !TOKEN, COUNTED},
    {"CFG_GET_DB_DATETIME", C::GET_DB_DATETIME, {}, R::STRING, READS, !TOKEN, !COUNTED},
    {"GET_SERVER_SYNC_ID", C::GET_SERVER_SYNC_ID, {}, R::STRING, READS, !TOKEN, !COUNTED},
};
// clang-format on

constexpr bool rows_are_in_order() {
  for (int i = 0; i < COMMAND_COUNT; ++i) {
    if (static_cast<int>(rows[i].command) != i) return false;
  }
  return std::size(rows) == COMMAND_COUNT;
}
static_assert(rows_are_in_order());

// Row numbers in the order of the names.
constexpr auto by_name = [] {
  std::array<uint8_t, COMMAND_COUNT> order{};
  for (size_t i = 0; i < order.size(); ++i) order[i] = static_cast<uint8_t>(i);
  std::sort(order.begin(), order.end(), [](uint8_t a, uint8_t b) {
    return std::string_view(rows[a].name) < std::string_view(rows[b].name);
  });
  return order;
}();

}  // namespace

const CommandRow& row_of(Command command) { return rows[static_cast<size_t>(command)]; }

const CommandRow* find_command(std::string_view name) {
  const auto found = std::lower_bound(
      by_name.begin(), by_name.end(), name,
      [](uint8_t row, std::string_view wanted) { return rows[row].name < wanted; });
  return found != by_name.end() && rows[*found].name == name ? &rows[*found] : nullptr;
}

}  // namespace cfg::protocol
