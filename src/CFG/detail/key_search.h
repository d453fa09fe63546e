// A search below a key by the name of a key or value.
#pragma once

#include <logging/Logger.h>
#include <strings/RWCString.h>
#include <tree/String_Arr.h>
#include <tree/Tree_Node.h>

namespace cfg {

// What SearchKeyOrValueName answers where `read` gives the tree at a path; messages go to `log`.
template <class Read>
String_Arr* search_below(const Log_Logger& log, const RWCString& name, const RWCString& path,
                         const Read& read) {
  constexpr char op[] = "SearchKeyOrValueName(const RWCString & name,const RWCString & path)";
  if (name.isNull()) {
    return log.reject(nullptr, "%s : name parameter is an empty string, return NULL\n", op);
  }
  if (path.isNull()) {
    return log.reject(nullptr, "%s : path parameter is an empty string, return NULL\n", op);
  }
  const Tree_NodePtr key = read(path);
  if (!key) {
    return log.reject(nullptr, "%s : fail to get sub tree for path : %s, return NULL\n", op, path);
  }
  if (key->IsLeaf()) {
    return log.reject(nullptr, "%s : path %s represent a value, return NULL\n", op, path);
  }
  return key->Search(name, key, FALSE);
}

}  // namespace cfg
