// What an export makes of a tree that was imported.
#pragma once

#include <cstdlib>
#include <string>
#include <string_view>

#include <CFG/xml/xml_writer.h>
#include <tree/Tree_Node.h>

// Ends the process when the tree cannot be written: what was read, can.
inline std::string written(Tree_Node& tree) {
  const RWCString path = tree.GetVirtualParentPath();
  const size_t cut = path.last('\\');
  std::string document;
  cfg::xml_writer writer([&](std::string_view bytes) {
    document.append(bytes);
    return true;
  });
  const bool is_written =
      writer.write_branch(tree, path.view().substr(0, cut == path.npos ? 0 : cut)) &&
      writer.finish();
  if (!is_written) abort();
  return document;
}
