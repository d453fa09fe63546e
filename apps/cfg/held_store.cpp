#include "held_store.h"

#include <CFG/CFG_Factory.h>
#include <CFG/CFG_MemoryRepository.h>
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>

#include "activity.h"
#include "library_log.h"

namespace cli {

namespace {

class CopiedTree : public Draft {
 public:
  explicit CopiedTree(HeldStore& store)
      : m_store(store),
        m_before(store.node(store.root())),
        m_after(m_before->DuplicateFromHereDown(true)),
        m_repository(&m_after) {}

  CFG_RepositoryServices& repository() override { return m_repository; }
  std::vector<Difference> changes() override {
    return find_differences(m_before, m_after.GetData().get());
  }
  void save() override { m_store.replace_tree(m_after); }

 private:
  HeldStore& m_store;
  Tree_Node* m_before;
  CFG_SubTree m_after;
  CFG_MemoryRepository m_repository;
};

// A handle on a child shares nodes with a tree that the repository keeps in memory, and
// so leads to the root itself; a copy of the root comes only where there is no such child.
Tree_NodePtr root_of(CFG_RepositoryServices& repository, const std::string& name) {
  const RWCString any_root = "\\";
  const std::unique_ptr<CFG_SubTree> child(repository.GetSubTree(any_root, 0));
  if (child && child->GetData()->GetParent()) return Tree_NodePtr(child->GetData()->GetParent());
  const std::unique_ptr<CFG_SubTree> copy(repository.GetSubTree(any_root));
  if (!copy) throw Failure(UNREACHABLE, name + " holds no tree");
  return copy->GetData();
}

// Who only reads, or only tries, needs none.
std::optional<TreeLock> lock_of(const std::string& file, const Arguments& arguments,
                                Store::Access access) {
  std::optional<TreeLock> lock;
  if (access == Store::WRITE && !arguments.dry_run) lock.emplace(file, arguments.wait);
  return lock;
}

std::unique_ptr<TreeFile> read_tree(const Arguments& arguments, Store::Access access) {
  const std::string& name = arguments.tree_file;
  auto tree = std::make_unique<TreeFile>(name);
  const bool is_missing = !Sys_File::Exists(RWWString::fromUTF8(name));
  if (is_missing && arguments.create) {
    tree->start_empty();
    return tree;
  }
  const Activity activity("reading " + name);
  try {
    tree->Connect();
  } catch (const Failure& failure) {
    const bool has_hint = is_missing && access == Store::WRITE;
    throw Failure(UNREACHABLE, failure.text + (has_hint ? "; --create starts a new tree" : ""));
  }
  if (access == Store::WRITE && !tree->why_read_only().empty()) {
    throw Failure(REFUSED,
                  name + " " + tree->why_read_only() + "; import it into a tree to change it");
  }
  return tree;
}

}  // namespace

// --- what is common to them ----------------------------------------------------------------------

HeldStore::HeldStore(std::string name, std::string file, CFG_RepositoryServices& repository,
                     Tree_NodePtr root)
    : Store(std::move(name), root->GetKeyName().str(), std::move(file)),
      m_repository(repository),
      m_root(std::move(root)) {}

HeldStore::HeldStore(std::string name, std::string file, CFG_RepositoryServices& repository,
                     Access access)
    : HeldStore(name, std::move(file), repository, root_of(repository, name)) {
  // Whether the paths of writes are checked is a setting of the tree.
  if (access == WRITE) repository.InitValidatePathProperties();
}

Tree_Node* HeldStore::node(std::string_view path) const {
  return m_root->Find(path.substr(std::min(root().size() + 1, path.size())));
}

Kind HeldStore::kind(std::string_view path) const {
  const Tree_Node* there = node(path);
  return !there ? Kind::NOTHING : there->IsLeaf() ? Kind::VALUE : Kind::KEY;
}

Tree_NodePtr HeldStore::listing(const std::string& path) const {
  return Tree_NodePtr(kind(path) == Kind::KEY ? node(path) : nullptr);
}

std::unique_ptr<Draft> HeldStore::draft(const std::set<std::string>&) {
  return std::make_unique<CopiedTree>(*this);
}

void HeldStore::replace_tree(CFG_SubTree& tree) {
  const Reasons reasons;
  // The root written below no parent takes the place of the whole tree.
  const bool is_saved = m_repository.StartTransactionUpdate() &&
                        m_repository.AddOrReplaceSubTree(&tree, RWCString()) &&
                        m_repository.EndTransactionUpdate(false);
  if (!is_saved) throw Failure(REFUSED, with_reason("cannot save " + name(), reasons));
}

// --- a file of its own ---------------------------------------------------------------------------

std::unique_ptr<FileStore> FileStore::open(const Arguments& arguments, Access access) {
  const std::string& file = arguments.tree_file;
  std::optional<TreeLock> lock = lock_of(file, arguments, access);
  std::unique_ptr<TreeFile> tree = read_tree(arguments, access);
  return std::unique_ptr<FileStore>(new FileStore(file, std::move(tree), std::move(lock), access));
}

FileStore::FileStore(const std::string& file, std::unique_ptr<TreeFile> tree,
                     std::optional<TreeLock> lock, Access access)
    : HeldStore(file, file, *tree, access),
      m_lock(std::move(lock)),
      m_tree(std::move(tree)),
      m_access(access) {}

// The process ends, and the system takes its memory back at once: to take apart a large tree
// that was only read would take a tenth of all its time. It stays where a leak checker finds it.
FileStore::~FileStore() {
  [[maybe_unused]] static CFG_RepositoryServices* volatile left = nullptr;
  if (m_access == READ) left = m_tree.release();
}

// --- a file that parameters name -----------------------------------------------------------------

std::unique_ptr<ParametersStore> ParametersStore::open(const Arguments& arguments,
                                                       const ChosenParameters& parameters,
                                                       Access access) {
  const std::string file = parameters.values.xml_file.str();
  std::optional<TreeLock> lock = lock_of(file, arguments, access);
  CFG_RepositoryServices& repository = factory_repository(arguments, parameters);
  return std::unique_ptr<ParametersStore>(
      new ParametersStore(file, repository, std::move(lock), access));
}

ParametersStore::ParametersStore(const std::string& file, CFG_RepositoryServices& repository,
                                 std::optional<TreeLock> lock, Access access)
    : HeldStore(file, file, repository, access), m_lock(std::move(lock)) {}

CFG_RepositoryServices& factory_repository(const Arguments& arguments,
                                           const ChosenParameters& parameters) {
  const Reasons reasons;
  const Activity activity("reading the tree of " + parameters.file);
  CFG_RepositoryServices* repository =
      arguments.params_file.empty()
          ? CFG_Factory::GetRepositoryServices()
          : CFG_Factory::GetRepositoryServices(RWWString::fromUTF8(parameters.file).data());
  if (repository) return *repository;
  throw Failure(UNREACHABLE, with_reason("cannot open the tree of " + parameters.file, reasons));
}

}  // namespace cli
