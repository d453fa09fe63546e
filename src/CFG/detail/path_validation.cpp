#include <CFG/detail/path_validation.h>

#include <atomic>

#include <CFG/detail/byte_scan.h>
#include <logging/Logger.h>

namespace cfg {
namespace {

constexpr Log_Logger logger("src/CFG/CFG_ServicesImp", 502);

std::atomic<int> validation_switch{0};

bool is_white_space(unsigned char c) { return c <= 0x20 || c == 0x7F; }
bool is_invalid(unsigned char c) { return c < 0x20 || c == '%' || c == '\'' || c == 0x7F; }

// Nothing in it that could be wrong or deserve a warning: nearly every path.
bool is_plainly_well_formed(std::string_view path) {
  return path.front() != '\\' && path.back() != '\\' && !has_suspect_byte(path) &&
         path.find("\\\\") == path.npos;
}

bool check_ends(const RWCString& path, const char* caller) {
  const unsigned char first = path[0], last = path[path.length() - 1];
  bool good = true;
  if (is_white_space(last)) {
    logger.error(
        "%s using IsValidPath: last char is white space char <0x%X>, bad path <%s>, at offset %d\n",
        caller, last, path, path.length() - 1);
    good = false;
  }
  if (is_white_space(first)) {
    logger.error(
        "%s using IsValidPath: first char is white space char <0x%X>, bad path <%s>, at offset %d\n",
        caller, first, path, 0);
    good = false;
  }
  if (first == '\\') {
    return logger.reject(false, "%s using IsValidPath: \\ char at begining bad path <%s>\n", caller,
                         path);
  }
  return good;
}

// A backslash that is not the first byte of the path.
bool check_backslash(const RWCString& path, size_t at, const char* caller) {
  const unsigned char before = path[at - 1];
  const unsigned char after = at + 1 < path.length() ? path[at + 1] : 0;
  if (is_white_space(after)) {
    return logger.reject(
        false,
        "%s using IsValidPath: white space char <0x%X> after \\  , bad path <%s>, at offset %d\n",
        caller, after, path, at + 1);
  }
  if (after == '\\') {
    logger.warning(
        "%s using IsValidPath: \\  after \\  , bad path <%s>, at offset %d - treated as warning\n",
        caller, path, at + 1);
  }
  if (is_white_space(before)) {
    return logger.reject(
        false,
        "%s using IsValidPath: white space char <0x%X> before \\ , bad path <%s>, at offset %d\n",
        caller, before, path, at - 1);
  }
  return true;
}

}  // namespace

bool is_path_validation_on() { return validation_switch.load(std::memory_order_relaxed); }
void set_path_validation(bool on) { validation_switch.store(on, std::memory_order_relaxed); }

bool is_well_formed(const RWCString& path, const char* caller) {
  if (path.isNull() || is_plainly_well_formed(path)) return true;
  if (!caller) caller = "not specified";
  if (!check_ends(path, caller)) return false;
  for (size_t at = 0; at < path.length(); ++at) {
    const unsigned char c = path[at];
    if (is_invalid(c)) {
      return logger.reject(
          false, "%s using IsValidPath: invalid char <0x%X>, bad path <%s>, at offset %d\n", caller,
          c, path, at);
    }
    if (c == '\\' && !check_backslash(path, at, caller)) return false;
  }
  return true;
}

}  // namespace cfg
