#include <CFG/CFG_FileRepositoryBase.h>

#include <mutex>
#include <shared_mutex>
#include <type_traits>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/held_tree.h>
#include <CFG/detail/lower_case_names.h>
#include <CFG/detail/node_address.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/patterns.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::held_tree;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_FileRepositoryBase", 502);

bool is_prefix(std::string_view name) { return !name.empty() && name.back() == '%'; }

CFG_SubTree* without_empty_branches(CFG_SubTree* owned) try {
  std::unique_ptr<CFG_SubTree> sub_tree(owned);
  if (sub_tree && !sub_tree->IsEmpty()) sub_tree->GetData()->RemoveEmptyBranches();
  return sub_tree.release();
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_NodePtr without_empty_branches(const Tree_NodePtr& node) {
  if (node) node->RemoveEmptyBranches();
  return node;
}

// Says whether a key has a value of a certain name and text; see FindValue.
class ValueTest {
 public:
  ValueTest(const RWCString& name, const RWCString& text)
      : m_name(name),
        m_text(text),
        m_case(cfg::is_address_name(name) ? RWCString::ignoreCase : RWCString::exact) {}

  bool holds_for(const Tree_Node& key) const {
    if (!is_prefix(m_name)) return is_equal(key.Find(m_name));
    const cfg::split_path where(m_name);
    const Tree_Node* holder =
        where.parent.find('%') == std::string_view::npos ? key.Find(where.parent) : nullptr;
    const Tree_ChildList* children = holder ? holder->Children() : nullptr;
    if (!children) return false;
    const std::string_view prefix = where.name.substr(0, where.name.find('%'));
    for (uint32_t i = children->next(0); i != Tree_ChildList::npos; i = children->next(i + 1)) {
      const Tree_Node* child = children->at(i).get();
      if (child->NameView().substr(0, prefix.size()) == prefix && is_equal(child)) return true;
    }
    return false;
  }

 private:
  bool is_equal(const Tree_Node* value) const {
    return value && value->IsLeaf() && value->GetText().size() == m_text.length() &&
           RWCString(value->GetText()).compareTo(m_text, m_case) == 0;
  }

  const cfg::actual_path m_name;
  const RWCString& m_text;
  RWCString::caseCompare m_case;
};

}  // namespace

CFG_FileRepositoryBase::CFG_FileRepositoryBase(RWWString file) : m_file(std::move(file)) {}
CFG_FileRepositoryBase::~CFG_FileRepositoryBase() = default;

void CFG_FileRepositoryBase::before_path_used(const RWCString&) {}
void CFG_FileRepositoryBase::before_all_paths_used() {}

template <template <class> class Lock, class Hook, class Asked>
auto CFG_FileRepositoryBase::with_tree(const char* op, const Hook& hook, const Asked& asked) try {
  hook();
  Lock<ReadMostlyLock> lock;
  if (m_tree_lock) lock = Lock<ReadMostlyLock>(*m_tree_lock);
  return asked(held_tree(m_sub_tree.get()));
} catch (...) {
  return cfg::answered(logger, std::invoke_result_t<Asked, held_tree>(), op);
}
template <class Asked>
auto CFG_FileRepositoryBase::read(const RWCString& path, const Asked& asked, const char* op) {
  return with_tree<std::shared_lock>(
      op, [&] { before_path_used(path); }, asked);
}
template <class Asked>
auto CFG_FileRepositoryBase::read_all(const Asked& asked, const char* op) {
  return with_tree<std::shared_lock>(
      op, [&] { before_all_paths_used(); }, asked);
}
template <class Asked>
auto CFG_FileRepositoryBase::change(const RWCString& path, const Asked& asked, const char* op) {
  return with_tree<std::unique_lock>(
      op, [&] { before_path_used(path); }, asked);
}

RWCString CFG_FileRepositoryBase::RemoveRootName(const RWCString& path) {
  return held_tree(m_sub_tree.get()).below_root(path);
}

int CFG_FileRepositoryBase::UnLock() {
  logger.trace("Start UnLock()\n");
  if (!m_sub_tree) {
    return logger.reject(FALSE, "UnLock() : no tree to write to file <%S>, return FALSE\n", m_file);
  }
  return with_tree<std::shared_lock>(
      __func__, [] {},
      [&](const held_tree& tree) { return WriteCFG_SubTreeToFile(&tree.handle(), "", m_file); });
}

// --- what the held subtree answers ---------------------------------------------------------------

RWCString CFG_FileRepositoryBase::GetValue(const RWCString& path) {
  return read(path, [&](const held_tree& tree) { return tree.value(path); });
}
RWCString CFG_FileRepositoryBase::GetValue(RWCString path, RWCString default_value) try {
  before_path_used(path);
  return CFG_RepositoryServicesImp::GetValue(std::move(path), std::move(default_value));
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_FileRepositoryBase::GetValue(RWCString& path, int index) {
  return read(path, [&](const held_tree& tree) { return tree.value(path, index); });
}
RWCString CFG_FileRepositoryBase::GetValueName(RWCString& path, int index) {
  return read(path, [&](const held_tree& tree) { return tree.value_name(path, index); });
}
int CFG_FileRepositoryBase::GetValueNum(RWCString& path) {
  return read(path, [&](const held_tree& tree) { return tree.value_num(path); });
}
int CFG_FileRepositoryBase::GetSubTreeNum(RWCString& path) {
  return read(path, [&](const held_tree& tree) { return tree.sub_tree_num(path); });
}
int CFG_FileRepositoryBase::IsSubTreeExist(const RWCString& path) {
  return read(path, [&](const held_tree& tree) { return tree.has_sub_tree(path); });
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTree(RWCString& path, int index) {
  return read(path, [&](const held_tree& tree) {
    return tree.handle().GetSubTree(RemoveRootName(path), index);
  });
}
int CFG_FileRepositoryBase::GetSubTreeEntriesCount(const RWCString& path) {
  return read(path, [&](const held_tree& tree) {
    return tree.handle().GetSubTreeEntriesCount(RemoveRootName(path));
  });
}
Tree_PathAndValueArray* CFG_FileRepositoryBase::GetSubTreeValues(const RWCString& path) {
  return read(path, [&](const held_tree& tree) {
    return tree.handle().GetSubTreeValues(RemoveRootName(path));
  });
}
String_Arr* CFG_FileRepositoryBase::GetSubTreePaths(const RWCString& path) {
  return read(path, [&](const held_tree& tree) {
    return tree.handle().GetSubTreePaths(RemoveRootName(path));
  });
}
int CFG_FileRepositoryBase::SetValue(const RWCString& path, const RWCString& value) {
  return change(path, [&](const held_tree& tree) {
    return tree.handle().SetValue(RemoveRootName(path), value);
  });
}
int CFG_FileRepositoryBase::DeleteSubTree(const RWCString& path) {
  return change(path, [&](const held_tree& tree) {
    return tree.handle().DeleteSubTree(RemoveRootName(path));
  });
}
int CFG_FileRepositoryBase::DeleteValue(const RWCString& path) {
  return change(
      path, [&](const held_tree& tree) { return tree.handle().DeleteValue(RemoveRootName(path)); });
}

// --- detached copies ------------------------------------------------------------------------

CFG_SubTree* CFG_FileRepositoryBase::GetSubTree(RWCString& path) {
  logger.trace("path is %s\n", path);
  return read(path, [&](const held_tree& tree) { return tree.sub_tree_at(path); });
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTreeWithPrecentAndWildcard(const RWCString& path) try {
  return CFG_Services::GetSubTree(RWCString(cfg::before_wildcard(path)));
} catch (...) {
  return cfg::answered(logger, nullptr);
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) {
  return GetSubTreeWithPrecentAndWildcard(path);
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTreeWithLongValues(const RWCString& path) {
  return GetSubTree(path);
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTreeOnlyWithValuesLong(const RWCString& path) {
  return without_empty_branches(GetSubTree(path));
}
CFG_SubTree* CFG_FileRepositoryBase::GetSubTreeOnlyWithValues(const RWCString& path) {
  return without_empty_branches(GetSubTree(path));
}

int CFG_FileRepositoryBase::ExportPath(const RWCString& path, const RWWString& file) {
  return read(path, [&](const held_tree& tree) {
    return ExportPathRead(path, file, [&](const RWCString& actual) {
      logger.trace("path is %s\n", actual);
      return tree.shared_at(actual);
    });
  });
}

Tree_NodePtr CFG_FileRepositoryBase::GetTreeNode(const RWCString& path) {
  logger.trace("path is %s\n", path);
  return read(path, [&](const held_tree& tree) { return tree.copy_at(path); });
}
Tree_NodePtr CFG_FileRepositoryBase::GetTreeNodeWithPrecentAndWildcard(const RWCString& path) {
  return GetTreeNode(RWCString(cfg::before_wildcard(path)));
}
Tree_NodePtr CFG_FileRepositoryBase::GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) {
  return GetTreeNodeWithPrecentAndWildcard(path);
}
Tree_NodePtr CFG_FileRepositoryBase::GetTreeNodeWithLongValues(const RWCString& path) {
  return GetTreeNode(path);
}
Tree_NodePtr CFG_FileRepositoryBase::GetTreeNodeOnlyWithValuesLong(const RWCString& path) try {
  return without_empty_branches(GetTreeNode(change_string_with_properties(path)));
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}
Tree_NodePtr CFG_FileRepositoryBase::GetTreeNodeOnlyWithValues(const RWCString& path) try {
  return without_empty_branches(GetTreeNode(change_string_with_properties(path)));
} catch (...) {
  return cfg::answered(logger, Tree_NodePtr());
}

// --- subtree writes, rename and search ------------------------------------------------------

int CFG_FileRepositoryBase::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  constexpr char op[] = "AddOrReplaceSubTree(CFG_SubTree* sub_tree,const RWCString & path)";
  logger.trace("Start %s\n", op);
  if (!sub_tree) return logger.reject(FALSE, "%s, sub_tree is NULL, return FALSE\n", op);
  Tree_NodePtr node = sub_tree->GetData();
  return WriteSubTree(node, change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_FileRepositoryBase::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path,
                                                int merge) try {
  constexpr char op[] =
      "AddOrReplaceSubTree(CFG_SubTree* sub_tree,const RWCString & path,T_Bool merge)";
  logger.info("Start %s path %s\n", op, path);
  if (!merge) return AddOrReplaceSubTree(sub_tree, path);
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  logger.info(" sub tree key name\n");
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  data = cfg::in_lower_case(data);
  if (!data) return FALSE;
  return change(actual, [&](const held_tree& tree) {
    const Tree_NodePtr stored = tree.node_at(cfg::join(actual, data->NameView()).str());
    if (stored && !stored->IsLeaf()) data = Tree_Node::Merge(stored, data);
    return tree.write(data, actual);
  });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_FileRepositoryBase::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) {
  return change(path, [&](const held_tree& tree) { return tree.write(sub_tree, path); });
}

int CFG_FileRepositoryBase::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) {
  constexpr char op[] = "SetOrRanameKeyName(const RWCString & path,const RWCString & key_name)";
  logger.info("Start %s for path <%s> key name <%s>\n", op, path, key_name);
  if (key_name.isNull()) {
    return logger.reject(FALSE, "%s  for path <%s>: key_name is empty string, return FALSE\n", op,
                         path);
  }
  if (path.isNull()) {
    return logger.reject(FALSE, "%s key <%s>: path is empty string, return FALSE\n", op, key_name);
  }
  return change(path, [&](const held_tree& tree) {
    return tree.rename(logger, RemoveRootName(path), key_name);
  });
}

String_Arr* CFG_FileRepositoryBase::Search(RWCString name, RWCString path) try {
  before_all_paths_used();
  return CFG_RepositoryServicesImp::Search(std::move(name), std::move(path));
} catch (...) {
  return cfg::answered(logger, nullptr);
}
String_Arr* CFG_FileRepositoryBase::SearchKeyOrValueName(const RWCString& name,
                                                         const RWCString& path) {
  return read(path, [&](const held_tree& tree) { return tree.search(logger, name, path); });
}

// --- patterns -------------------------------------------------------------------------------

String_Arr* CFG_FileRepositoryBase::FillPath(RWCString pattern) {
  return read_all([&](const held_tree&) {
    std::vector<RWCString> paths;
    RWCString actual = change_string_with_properties(RemoveRootName(pattern));
    FillPathToVec(m_sub_tree.get(), actual, &paths);
    return cfg::filled_paths(logger, paths);
  });
}

void CFG_FileRepositoryBase::FillPathToVec(CFG_SubTree* at, RWCString& pattern,
                                           std::vector<RWCString>* out) {
  before_path_used(pattern);
  const Tree_NodePtr top = held_tree(at).root();
  const auto step = [this](std::string_view rest) { before_path_used(RWCString(rest)); };
  for (cfg::pattern_walk walk(top.get(), pattern, step); *walk; walk.next()) {
    const Tree_Node& found = **walk;
    if (!found.IsLeaf() || !found.GetText().empty()) out->push_back(found.GetPath());
  }
}

RWCString CFG_FileRepositoryBase::FillPath(RWCString pattern, RWCString value_name,
                                           RWCString value) {
  return read_all([&](const held_tree&) {
    RWCString actual = change_string_with_properties(RemoveRootName(pattern));
    const auto find = [&](RWCString name, RWCString text) {
      return FindValue(m_sub_tree.get(), actual, name, text);
    };
    if (!cfg::is_address_name(value_name)) return find(value_name, value);
    const cfg::node_address address(value);
    return address.first_found(value_name, address.unbraced, find);
  });
}

RWCString CFG_FileRepositoryBase::FindValue(CFG_SubTree* at, RWCString& pattern,
                                            RWCString& value_name, RWCString& value) {
  const Tree_NodePtr top = held_tree(at).root();
  if (!top || value.isNull()) return RWCString();
  const ValueTest test(value_name, value);
  if (pattern.isNull()) {
    return is_prefix(value_name) && test.holds_for(*top) ? top->GetPath() : RWCString();
  }
  for (cfg::pattern_walk walk(top.get(), pattern); *walk; walk.next()) {
    if (!(*walk)->IsLeaf() && test.holds_for(**walk)) return (*walk)->GetPath();
  }
  return RWCString();
}

RWCString CFG_FileRepositoryBase::GetNodeNameByIp(RWCString ip) try {
  return cfg::component(
      FillPath("halvoria\\system\\nodes\\%\\properties", "inet_address%", ip).str(), 3);
} catch (...) {
  return cfg::answered(logger, RWCString());
}
