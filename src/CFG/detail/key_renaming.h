// What a key is to be called, looked at before anything is touched.
#pragma once

#include <string_view>

#include <CFG/detail/paths.h>
#include <tree/Tree_Path.h>

namespace cfg {

// What keeps a text from being the name of a key, whatever the store; null when nothing does. A
// NUL byte would end the name on its way to a service.
inline const char* fault_of_name(std::string_view name) {
  if (name.empty()) return "a name is not empty";
  if (name.find('\\') != name.npos) return "a name holds no backslash";
  if (name.find('\0') != name.npos) return "a name holds no NUL byte";
  return nullptr;
}

// The rename of a key in a repository, by the paths before and after.
struct key_renaming {
  key_renaming(std::string_view path, std::string_view name) {
    std::string_view last, next;
    for (Tree_PathWalk walk(path); walk.Next(next); last = next) parent = join(parent, last);
    from = join(parent, last);
    to = join(parent, name);
    fault = fault_of_name(name);
    if (!fault && parent.isNull() && !changes_nothing()) fault = "the root keeps its name";
  }
  bool changes_nothing() const { return from == to; }

  RWCString parent, from, to;
  const char* fault = nullptr;  // why it is refused
};

}  // namespace cfg
