// The tree that a run of the command works on.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <CFG/CFG_RepositoryServices.h>
#include <CFG/CFG_SubTree.h>

#include "arguments.h"
#include "failure.h"
#include "shared_tree.h"
#include "tree_lock.h"

namespace cli {

// A tree that this process alone uses, from a file, is held whole, and its nodes are those of the
// repository itself, valid as long as this object, also when the tree has been replaced. Of a
// tree that others use too, at a service or in a database, what a run asks for is fetched; its
// nodes are valid until the run changes something.
class Store {
 public:
  enum Access { READ, WRITE };

  // Opens what --file, --server, --params, HALVORIA_CFG_FILE or the default parameters file
  // names, in this order. For WRITE no other run of the command changes it until this object goes.
  // A store that cannot be opened is a Failure(UNREACHABLE).
  Store(const Arguments& arguments, Access access);
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  ~Store();

  CFG_RepositoryServices& repository() { return *m_repository; }
  const std::string& root() const { return m_root_name; }
  const std::string& name() const { return m_name; }  // as messages call it

  // The path that an argument means: with the properties put in, in lower case. Failure
  // when it does not begin with the root key's name.
  std::string path(const std::string& typed) const;
  // The same for something to be written: Failure too when a value stands above it, and when
  // an XML file would not give it back as it is.
  std::string writable_path(const std::string& typed) const;
  // What is at a path, with everything below it; null when nothing is.
  Tree_Node* node(std::string_view path) const;
  Kind kind(std::string_view path) const;
  // The key at a path with what is directly below it; null when there is none.
  Tree_NodePtr listing(const std::string& path) const;
  // The key, or the value, at a path; Failure(NOT_FOUND) when there is none.
  Tree_Node& key(const std::string& path) const;
  Tree_Node& value(const std::string& path) const;
  // What to say about a path where nothing is.
  Failure not_found(const std::string& path) const;

  // Null when this process alone uses the tree.
  SharedTree* shared() const { return m_shared.get(); }
  // Puts `tree` in the place of the whole tree and saves it; of a tree that is not shared.
  void replace_tree(CFG_SubTree& tree);

 private:
  void open_tree_file(const Arguments& arguments, Access access);
  void open_with_parameters(const Arguments& arguments, Access access);
  void open_shared(std::unique_ptr<SharedTree> tree);

  const Access m_access;
  std::optional<TreeLock> m_lock;
  std::unique_ptr<CFG_RepositoryServices> m_own;  // of --file; the factory owns the others
  std::unique_ptr<SharedTree> m_shared;
  CFG_RepositoryServices* m_repository = nullptr;
  std::string m_name;
  std::string m_root_name;
  Tree_NodePtr m_root;
};

// Sets the properties given as name=value for the whole process.
void set_properties(const std::vector<std::string>& properties);

}  // namespace cli
