// Files of trees.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include <CFG/CFG_SubTree.h>

#include <CFG/CFG_SynchronizedFileRepository.h>

#include "byte_file.h"
#include "input_file.h"

namespace cli {

struct Document {
  Form form = Form::XML;
  std::unique_ptr<CFG_SubTree> tree;  // the root key and every branch below it, at its place
  CFG_SynchronizedFileRepository::FileFacts synced;  // of a synced file
  std::vector<std::string> branches;                 // the paths of the top keys of the branches

  // It is one tree from its root down, and not pieces of one.
  bool is_whole() const;
  // The top key of the branch, when there is just one; else the root key.
  Tree_Node* top() const;
};

// Anything wrong with the file is a Failure that names the file and, in XML, line and column.
Document read_document(const InputFile& file);

// The paths of the branches of an XML file alone.
std::vector<std::string> read_branch_paths(const InputFile& file);

// The same for a file that lists values.
struct ValueList {
  size_t count = 0;
  std::string outside;  // a path that does not begin with `root`; empty when all do
  std::string common;   // the key that all of them lie below
};
ValueList read_value_list(const InputFile& file, const std::string& root);

}  // namespace cli
