#include <CFG/CFG_MemoryRepository.h>

#include <type_traits>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/held_tree.h>
#include <CFG/detail/patterns.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::held_tree;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_MemoryRepository", 502);

// An operation: what `asked` makes of the tree. Nothing that is thrown gets out.
template <class Asked>
auto ask(CFG_SubTree* sub_tree, const Asked& asked, const char* op = __builtin_FUNCTION()) try {
  return asked(held_tree(sub_tree));
} catch (...) {
  return cfg::answered(logger, std::invoke_result_t<Asked, held_tree>(), op);
}

}  // namespace

// Paths begin with the root key, also where the tree was read from a file, which leaves its own
// path on it.
CFG_MemoryRepository::CFG_MemoryRepository(CFG_SubTree* sub_tree) : m_sub_tree(sub_tree) {
  const Tree_NodePtr root = sub_tree ? sub_tree->GetData() : Tree_NodePtr();
  if (root) root->SetVirtualParentPath("");
}

RWCString CFG_MemoryRepository::RemoveRootName(const RWCString& path) {
  return held_tree(m_sub_tree).below_root(path);
}

// --- what the held subtree answers ---------------------------------------------------------------

RWCString CFG_MemoryRepository::GetValue(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.value(path); });
}
std::string_view CFG_MemoryRepository::TextAt(const RWCString& path) {
  return held_tree(m_sub_tree).text(path);
}
RWCString CFG_MemoryRepository::GetValue(RWCString& path, int index) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.value(path, index); });
}
RWCString CFG_MemoryRepository::GetValueName(RWCString& path, int index) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.value_name(path, index); });
}
int CFG_MemoryRepository::GetValueNum(RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.value_num(path); });
}
int CFG_MemoryRepository::GetSubTreeNum(RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.sub_tree_num(path); });
}
int CFG_MemoryRepository::IsSubTreeExist(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.has_sub_tree(path); });
}
CFG_SubTree* CFG_MemoryRepository::GetSubTree(RWCString& path, int index) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().GetSubTree(RemoveRootName(path), index);
  });
}
int CFG_MemoryRepository::GetSubTreeEntriesCount(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().GetSubTreeEntriesCount(RemoveRootName(path));
  });
}
Tree_PathAndValueArray* CFG_MemoryRepository::GetSubTreeValues(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().GetSubTreeValues(RemoveRootName(path));
  });
}
String_Arr* CFG_MemoryRepository::GetSubTreePaths(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().GetSubTreePaths(RemoveRootName(path));
  });
}
int CFG_MemoryRepository::SetValue(const RWCString& path, const RWCString& value) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().SetValue(RemoveRootName(path), value);
  });
}
int CFG_MemoryRepository::DeleteSubTree(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().DeleteSubTree(RemoveRootName(path));
  });
}
int CFG_MemoryRepository::DeleteValue(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.handle().DeleteValue(RemoveRootName(path));
  });
}

// --- detached copies: one read serves all forms ---------------------------------------------

CFG_SubTree* CFG_MemoryRepository::GetSubTree(RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.sub_tree_at(path); });
}
CFG_SubTree* CFG_MemoryRepository::GetSubTreeWithPrecentAndWildcard(const RWCString& path) try {
  return CFG_Services::GetSubTree(RWCString(cfg::before_wildcard(path)));
} catch (...) {
  return cfg::answered(logger, nullptr);
}
CFG_SubTree* CFG_MemoryRepository::GetSubTreeOnlyWithValuesLong(const RWCString& path) {
  return GetSubTree(path);
}
CFG_SubTree* CFG_MemoryRepository::GetSubTreeOnlyWithValues(const RWCString& path) {
  return GetSubTree(path);
}
CFG_SubTree* CFG_MemoryRepository::GetSubTreeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) {
  return GetSubTreeWithPrecentAndWildcard(path);
}
CFG_SubTree* CFG_MemoryRepository::GetSubTreeWithLongValues(const RWCString& path) {
  return GetSubTree(path);
}

int CFG_MemoryRepository::ExportPath(const RWCString& path, const RWWString& file) {
  return ExportPathRead(path, file, [this](const RWCString& actual) {
    return held_tree(m_sub_tree).shared_at(actual);
  });
}

Tree_NodePtr CFG_MemoryRepository::GetTreeNode(const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.copy_at(path); });
}
Tree_NodePtr CFG_MemoryRepository::GetTreeNodeOnlyWithValuesLong(const RWCString& path) {
  return GetTreeNode(path);
}
Tree_NodePtr CFG_MemoryRepository::GetTreeNodeOnlyWithValues(const RWCString& path) {
  return GetTreeNode(path);
}
Tree_NodePtr CFG_MemoryRepository::GetTreeNodeWithPrecentAndWildcard(const RWCString& path) {
  return GetTreeNode(RWCString(cfg::before_wildcard(path)));
}
Tree_NodePtr CFG_MemoryRepository::GetTreeNodeOnlyWithValuesWithPrecentAndWildcard(
    const RWCString& path) {
  return GetTreeNodeWithPrecentAndWildcard(path);
}

// --- subtree writes, rename and search ------------------------------------------------------

int CFG_MemoryRepository::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  constexpr char op[] = "AddOrReplaceSubTree(CFG_SubTree * sub_tree,const RWCString & path)";
  logger.trace("Start %s\n", op);
  if (!sub_tree) return logger.reject(FALSE, "%s, sub_tree is NULL, return FALSE\n", op);
  Tree_NodePtr node = sub_tree->GetData();
  return WriteSubTree(node, change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_MemoryRepository::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.write(sub_tree, path); });
}

int CFG_MemoryRepository::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) {
  constexpr char op[] = "SetOrRanameKeyName(const RWCString & path,const RWCString & key_name)";
  logger.trace("Start %s\n", op);
  if (key_name.isNull()) {
    return logger.reject(FALSE, "%s : key_name is empty string, return FALSE\n", op);
  }
  if (path.isNull()) return logger.reject(FALSE, "%s : path is empty string, return FALSE\n", op);
  return ask(m_sub_tree, [&](const held_tree& tree) {
    return tree.rename(logger, RemoveRootName(path), key_name);
  });
}

String_Arr* CFG_MemoryRepository::SearchKeyOrValueName(const RWCString& name,
                                                       const RWCString& path) {
  return ask(m_sub_tree, [&](const held_tree& tree) { return tree.search(logger, name, path); });
}

// --- patterns -------------------------------------------------------------------------------

String_Arr* CFG_MemoryRepository::FillPath(RWCString pattern) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    const cfg::actual_path actual(tree.below_root(pattern));
    const Tree_NodePtr root = tree.root();
    std::vector<RWCString> paths;
    for (cfg::pattern_walk walk(root.get(), actual); *walk; walk.next()) {
      if (!(*walk)->IsLeaf()) paths.push_back((*walk)->GetPath());
    }
    return cfg::filled_paths(logger, paths);
  });
}

RWCString CFG_MemoryRepository::FillPath(RWCString pattern, RWCString value_name, RWCString value) {
  return ask(m_sub_tree, [&](const held_tree& tree) {
    const cfg::actual_path actual(tree.below_root(pattern));
    const Tree_NodePtr root = tree.root();
    const auto path_of_match = [&](const RWCString& name) {
      const cfg::actual_path actual_name(name);
      for (cfg::pattern_walk walk(root.get(), actual); *walk; walk.next()) {
        const Tree_Node* found = (*walk)->IsLeaf() ? nullptr : (*walk)->Find(actual_name);
        if (found && found->IsLeaf() && found->GetText() == value.view()) return (*walk)->GetPath();
      }
      return RWCString();
    };
    RWCString path = path_of_match(value_name);
    if (value_name != "inet_address") return path;
    for (char digit = '1'; path.isNull() && digit <= '5'; ++digit) {
      path = path_of_match(RWCString("additional_inet_address_") + digit);
    }
    return path;
  });
}

RWCString CFG_MemoryRepository::GetNodeNameByIp(RWCString ip) try {
  return cfg::component(
      FillPath("halvoria\\system\\nodes\\%\\properties", "inet_address", ip).str(), 3);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_MemoryRepository::GetServerSyncID() { return "tree"; }

int CFG_MemoryRepository::Connect() { return TRUE; }
int CFG_MemoryRepository::UnLock() { return TRUE; }
