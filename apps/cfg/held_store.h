// Stores whose tree is held whole: files.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include "parameters.h"
#include "store.h"
#include "tree_file.h"
#include "tree_lock.h"

namespace cli {

// A tree that this process alone uses. Its nodes are those of the repository itself, valid as long
// as this object, also when the tree has been replaced. A change works on a copy of the tree,
// which takes its place as a whole.
class HeldStore : public Store {
 public:
  CFG_RepositoryServices& repository() const override { return m_repository; }
  Tree_Node* node(std::string_view path) const override;
  Kind kind(std::string_view path) const override;
  Tree_NodePtr listing(const std::string& path) const override;
  std::unique_ptr<Draft> draft(const std::set<std::string>& paths) override;

  // Puts `tree` in the place of the whole tree and saves it.
  void replace_tree(CFG_SubTree& tree);

 protected:
  HeldStore(std::string name, std::string file, CFG_RepositoryServices& repository, Access access);

 private:
  HeldStore(std::string name, std::string file, CFG_RepositoryServices& repository,
            Tree_NodePtr root);

  CFG_RepositoryServices& m_repository;
  const Tree_NodePtr m_root;
};

// The tree of --file.
class FileStore : public HeldStore {
 public:
  static std::unique_ptr<FileStore> open(const Arguments& arguments, Access access);
  ~FileStore() override;

 private:
  FileStore(const std::string& file, std::unique_ptr<TreeFile> tree, std::optional<TreeLock> lock,
            Access access);

  const std::optional<TreeLock> m_lock;
  std::unique_ptr<TreeFile> m_tree;
  const Access m_access;
};

// The tree of a file that parameters name. Its repository is the factory's.
class ParametersStore : public HeldStore {
 public:
  static std::unique_ptr<ParametersStore> open(const Arguments& arguments,
                                               const ChosenParameters& parameters, Access access);

 private:
  ParametersStore(const std::string& file, CFG_RepositoryServices& repository,
                  std::optional<TreeLock> lock, Access access);

  const std::optional<TreeLock> m_lock;
};

// The repository that the factory makes of the parameters; a Failure(UNREACHABLE) when it makes
// none.
CFG_RepositoryServices& factory_repository(const Arguments& arguments,
                                           const ChosenParameters& parameters);

}  // namespace cli
