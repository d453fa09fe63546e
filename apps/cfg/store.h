// The tree that a run of the command works on.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include <CFG/CFG_RepositoryServices.h>
#include <CFG/CFG_SubTree.h>

#include "arguments.h"
#include "draft.h"
#include "failure.h"
#include "kind.h"

namespace cli {

// What the command knows about paths and says about them. Where the tree is, and how it changes,
// is told by the stores themselves: held_store.h has those whose tree this process alone uses,
// shared_store.h the one whose tree others use too.
class Store {
 public:
  enum Access { READ, WRITE };

  // The store that --file, --server, --params, HALVORIA_CFG_FILE or the default parameters file
  // names, in this order. For WRITE no other run of the command changes it until this object goes.
  // A store that cannot be opened is a Failure(UNREACHABLE).
  static std::unique_ptr<Store> open(const Arguments& arguments, Access access);
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;
  virtual ~Store() = default;

  const std::string& root() const { return m_root; }
  const std::string& name() const { return m_name; }  // as messages call it
  // The file that it lives in; empty when it is in none, or in one that only others know.
  const std::string& file() const { return m_file; }

  virtual CFG_RepositoryServices& repository() const = 0;
  // What is at a path, with everything below it; null when nothing is.
  virtual Tree_Node* node(std::string_view path) const = 0;
  virtual Kind kind(std::string_view path) const = 0;
  // The key at a path with what is directly below it; null when there is none.
  virtual Tree_NodePtr listing(const std::string& path) const = 0;
  // A change of what is at or below `paths` and nothing else.
  virtual std::unique_ptr<Draft> draft(const std::set<std::string>& paths) = 0;

  // The path that an argument means: with the properties put in, in lower case. Failure
  // when it does not begin with the root key's name.
  std::string path(const std::string& typed) const;
  // The same for something to be written. Where nothing is yet, Failure too when a value stands
  // above it, when path validation refuses it, and when an XML file would not give it back as it
  // is; what an import let in under such a path can be written.
  std::string writable_path(const std::string& typed) const;
  // The key, or the value, at a path; Failure(NOT_FOUND) when there is none.
  Tree_Node& key(const std::string& path) const;
  Tree_Node& value(const std::string& path) const;
  // What to say about a path where nothing is.
  Failure not_found(const std::string& path) const;

 protected:
  Store(std::string name, std::string root, std::string file)
      : m_name(std::move(name)), m_root(std::move(root)), m_file(std::move(file)) {}

 private:
  const std::string m_name;
  const std::string m_root;
  const std::string m_file;
};

}  // namespace cli
