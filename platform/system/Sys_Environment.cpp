#include <system/Sys_Environment.h>

#include <cstdlib>

bool Sys_Environment::Get(const RWCString& name, RWCString& out) {
  const char* value = std::getenv(name.data());
  if (!value) return false;
  out = value;
  return true;
}

namespace {

// Takes a variable off the front of the text, which begins with `open`, and adds its value.
bool expand(std::string_view& text, std::string_view open, char close, std::string& expanded) {
  if (text.substr(0, open.size()) != open) return false;
  const size_t end = text.find(close, open.size());
  if (end == text.npos || end == open.size()) return false;
  RWCString value;
  const RWCString name(text.substr(open.size(), end - open.size()));
  if (!Sys_Environment::Get(name, value)) return false;
  expanded += value.view();
  text.remove_prefix(end + 1);
  return true;
}

}  // namespace

std::string Sys_Environment::Expand(std::string_view text) {
  std::string expanded;
  while (!text.empty()) {
    if (expand(text, "${", '}', expanded) || expand(text, "%", '%', expanded)) continue;
    expanded += text.front();
    text.remove_prefix(1);
  }
  return expanded;
}
