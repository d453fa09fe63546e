#include <CFG/CFG_SubTree.h>

#include <memory>

#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/key_renaming.h>
#include <CFG/detail/moving_merge.h>
#include <CFG/detail/paths.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SubTree", 502);

// What every read begins with. False without data: then the line in the log says that the
// operation returns `nothing`.
inline bool begin_read(const Tree_NodePtr& data, const char* op, std::string_view path,
                       const cfg::actual_path& actual, const char* nothing) {
  logger.trace("Start %s : input path <%s> , actual search path <%s>\n", op, path, actual.view());
  if (data) return true;
  return logger.reject(false, "%s : This sub tree data is null, return %s\n", op, nothing);
}

RWCString path_of(const Tree_NodePtr& node) { return node ? node->GetPath() : RWCString(); }

// What GetValue finds at a path, null when there is nothing. Inline, as a call more shows in the
// hottest of reads.
[[gnu::always_inline]] inline const Tree_Node* node_with_value(const Tree_NodePtr& root,
                                                               std::string_view path) {
  const cfg::actual_path actual(path);
  if (actual.empty()) {
    return logger.reject(nullptr,
                         "GetValue(RWCString & path) : path is empty string,return empty string\n");
  }
  if (!begin_read(root, "GetValue(RWCString & path)", path, actual, "empty string")) return nullptr;
  return root->Find(actual);
}

// The child at a position among those of one kind below the key at a path, null beyond.
const Tree_Node* child_at(const Tree_NodePtr& root, std::string_view path,
                          Tree_ChildList::Kind kind, int index) {
  const Tree_Node* key = root->Find(path);
  return key ? key->ChildAt(kind, index) : nullptr;
}

int child_count(const Tree_NodePtr& root, std::string_view path, Tree_ChildList::Kind kind) {
  const Tree_Node* key = root->Find(path);
  const Tree_ChildList* children = key ? key->Children() : nullptr;
  return children ? static_cast<int>(children->count(kind)) : 0;
}

}  // namespace

CFG_SubTree::CFG_SubTree(RWCString name) {
  try {
    tolower(name);
    m_data = new Tree_Node(name);
  } catch (...) {
    cfg::log_exception(logger, "CFG_SubTree(RWCString name)");  // a handle without data
  }
}

CFG_SubTree::CFG_SubTree(const Tree_NodePtr& data) : m_data(data) {}
CFG_SubTree::CFG_SubTree(const CFG_SubTree& other) = default;
CFG_SubTree& CFG_SubTree::operator=(const CFG_SubTree& other) = default;
CFG_SubTree::~CFG_SubTree() { logger.trace("CFG_SubTree dtor entered"); }

int CFG_SubTree::IsDataNull() { return !m_data; }
Tree_NodePtr CFG_SubTree::GetData() { return m_data; }
uint64_t CFG_SubTree::GetTotalSize() try {
  return m_data ? m_data->GetTotalSize() : 0;
} catch (...) {
  return cfg::answered(logger, uint64_t{0});
}

// --- reads -----------------------------------------------------------------------------------

RWCString CFG_SubTree::GetValue(const RWCString& path) { return ValueAt(path); }
RWCString CFG_SubTree::GetValue(RWCString& path, int index) { return ValueAt(path, index); }
RWCString CFG_SubTree::GetValueName(RWCString& path, int index) { return ValueNameAt(path, index); }
int CFG_SubTree::GetValueNum(RWCString& path) { return ValueNumAt(path); }
int CFG_SubTree::GetSubTreeNum(RWCString& path) { return SubTreeNumAt(path); }
int CFG_SubTree::IsSubTreeExist(const RWCString& path) { return HasSubTreeAt(path); }

RWCString CFG_SubTree::ValueAt(std::string_view path) try {
  const Tree_Node* found = node_with_value(m_data, path);
  return found ? found->CopyText() : RWCString();
} catch (...) {
  return cfg::answered(logger, RWCString());
}

std::string_view CFG_SubTree::TextAt(std::string_view path) try {
  const Tree_Node* found = node_with_value(m_data, path);
  return found ? found->GetText() : std::string_view();
} catch (...) {
  return cfg::answered(logger, std::string_view());
}

RWCString CFG_SubTree::ValueAt(std::string_view path, int index) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetValue(RWCString & path,int index)", path, actual, "empty string")) {
    return RWCString();
  }
  const Tree_Node* value = child_at(m_data, actual, Tree_ChildList::VALUES, index);
  return value ? value->CopyText() : RWCString();
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_SubTree::ValueNameAt(std::string_view path, int index) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetValueName(RWCString & path,int index)", path, actual,
                  "empty string")) {
    return RWCString();
  }
  const Tree_Node* value = child_at(m_data, actual, Tree_ChildList::VALUES, index);
  return value ? value->NameView() : std::string_view();
} catch (...) {
  return cfg::answered(logger, RWCString());
}

int CFG_SubTree::ValueNumAt(std::string_view path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetValueNum(RWCString & path)", path, actual, "0")) return 0;
  return child_count(m_data, actual, Tree_ChildList::VALUES);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::SubTreeNumAt(std::string_view path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTreeNum(RWCString & path)", path, actual, "0")) return 0;
  return child_count(m_data, actual, Tree_ChildList::KEYS);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::HasSubTreeAt(std::string_view path) try {
  static constexpr char op[] = "IsSubTreeExist(const RWCString & path)";
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, op, path, actual, "FALSE")) return FALSE;
  const Tree_Node* found = m_data->Find(actual);
  if (!found) {
    return logger.reject_at(LOG_LEVEL_TRACE, FALSE, "%s : path %s does not exist, return FALSE\n",
                            op, path);
  }
  if (found->IsLeaf()) {
    return logger.reject_at(LOG_LEVEL_TRACE, FALSE, "%s : path %s is a value, return FALSE\n", op,
                            path);
  }
  return logger.reject_at(LOG_LEVEL_TRACE, TRUE, "%s : path %s is a sub tree, return TRUE\n", op,
                          path);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::GetSubTreeEntriesCount(const RWCString& path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTreeEntriesCount(const RWCString & path)", path, actual, "0"))
    return 0;
  const Tree_Node* key = m_data->Find(actual);
  return key ? key->GetNodeNum() - 1 : 0;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

Tree_PathAndValueArray* CFG_SubTree::GetSubTreeValues(const RWCString& path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTreeValues(const RWCString & path)", path, actual, "NULL"))
    return nullptr;
  return m_data->GetSubTreeValues(actual.copy(), m_data);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

String_Arr* CFG_SubTree::GetSubTreePaths(const RWCString& path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTreePaths(const RWCString & path)", path, actual, "NULL"))
    return nullptr;
  return m_data->GetSubTreePaths(actual.copy(), m_data);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_SubTree::GetSubTree(RWCString& path) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTree(RWCString & path)", path, actual, "NULL")) return nullptr;
  Tree_Node* found = m_data->Find(actual);
  if (!found) {
    return logger.reject_at(
        LOG_LEVEL_TRACE, nullptr,
        "GetSubTree(RWCString & path) : GetRelativeSubTreeByRef return NULL_TREE_NODE_PTR,return NULL\n");
  }
  if (found->IsLeaf()) {
    return logger.reject_at(LOG_LEVEL_TRACE, nullptr,
                            "GetSubTree(RWCString & path) : path <%s> is a value,return NULL\n",
                            path);
  }
  return new CFG_SubTree(Tree_NodePtr(found));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_SubTree::GetSubTree(RWCString& path, int index) try {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetSubTree(RWCString & path,int index)", path, actual, "NULL"))
    return nullptr;
  const Tree_NodePtr& found = m_data->GetRelativeSubTreeByRef(actual.copy(), index, m_data);
  if (!found) {
    return logger.reject_at(
        LOG_LEVEL_TRACE, nullptr,
        "GetSubTree(RWCString & path,int index) : sub tree at index under path not exist, return NULL\n");
  }
  return new CFG_SubTree(found);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_NodePtr CFG_SubTree::GetTreeNode(const RWCString& path) {
  const cfg::actual_path actual(path);
  if (!begin_read(m_data, "GetTreeNode(const RWCString & path)", path, actual, "NULL"))
    return nullptr;
  return m_data->Find(actual);
}

int CFG_SubTree::IsEmpty() {
  if (m_data) return m_data->IsEmpty();
  return logger.reject(FALSE, "IsEmpty() : This sub tree data is null, return false\n");
}

RWCString CFG_SubTree::GetKeyName() try {
  if (m_data) return m_data->NameView();
  return logger.reject(RWCString(),
                       "GetKeyName() : This sub tree data is null, return empty string\n");
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_SubTree::GetPath() try {
  if (m_data) return m_data->GetPath();
  return logger.reject(RWCString(),
                       "GetPath() : This sub tree data is null, return empty string\n");
} catch (...) {
  return cfg::answered(logger, RWCString());
}

String_Arr* CFG_SubTree::SearchKeyOrValueName(const RWCString& name, const RWCString& path) {
  constexpr char op[] = "SearchKeyOrValueName(const RWCString & name,const RWCString & path)";
  if (name.isNull()) return logger.reject(nullptr, "%s : name is empty string, return NULL\n", op);
  if (!m_data) return logger.reject(nullptr, "%s : This sub tree data is null, return NULL\n", op);
  Tree_Node* key = m_data->Find(path);
  if (!key) {
    return logger.reject(nullptr, "%s : fail to get sub tree for path : %s, return NULL\n", op,
                         path);
  }
  if (key->IsLeaf()) {
    return logger.reject(nullptr, "%s : path %s represent a value, return NULL\n", op, path);
  }
  return key->Search(name, key, TRUE);
}

// --- writes ------------------------------------------------------------------------------------

int CFG_SubTree::SetValue(const RWCString& value_path, const RWCString& value_data) try {
  constexpr char op[] = "SetValue(const RWCString & value_path,const RWCString & value_data)";
  const cfg::actual_path actual(value_path);
  if (!IsValidPath(value_path, "CFG_SubTree::SetValue")) return FALSE;
  if (actual.empty()) return logger.reject(FALSE, "%s : value_path.isNull,return FALSE\n", op);
  if (value_data.isNull()) {
    return logger.reject(FALSE, "%s for path <%s> : value_data.isNull,return FALSE\n", op,
                         value_path);
  }
  if (!m_data) return logger.reject(FALSE, "%s : This sub tree data is null,return FALSE\n", op);
  const cfg::split_path where(actual);
  if (where.name.empty()) {
    return logger.reject(FALSE, "%s for path <%s> : value name is empty,return FALSE\n", op,
                         value_path);
  }
  Tree_Node* parent = m_data->Find(where.parent);
  if (!parent) {
    const Tree_NodePtr value = new Tree_Node(where.name, value_data, 1);
    if (m_data->Put(where.parent, value)) return TRUE;
  }
  if (!parent || parent->IsLeaf()) {
    return logger.reject_at(LOG_LEVEL_TRACE, FALSE,
                            "%s : value_name parent path is a value,return FALSE\n", op);
  }
  Tree_Node* present = parent->Child(where.name);
  if (!present) return parent->AddValue(where.name, value_data, 1) != nullptr;
  if (!present->IsLeaf()) {
    return logger.reject(FALSE, "%s : value path exist as sub tree,return FALSE\n", op);
  }
  present->GetTreeValue()->SetValue(value_data);
  present->GetTreeValue()->SetIsChange(1);
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::DeleteSubTree(const RWCString& path) try {
  constexpr char op[] = "DeleteSubTree(const RWCString & path)";
  const cfg::actual_path actual(path);
  if (actual.empty()) return logger.reject(FALSE, "%s : path is empty string, return FALSE\n", op);
  if (!IsValidPath(path, "CFG_SubTree::DeleteSubTree")) return FALSE;
  if (!m_data) return logger.reject(FALSE, "%s : This sub tree data is null, return FALSE\n", op);
  Tree_Node* found = m_data->Find(actual);
  if (!found) {
    return logger.reject_at(LOG_LEVEL_TRACE, FALSE, "%s : path %s does not exist, return FALSE\n",
                            op, path);
  }
  if (found->IsLeaf()) {
    return logger.reject(
        FALSE,
        "%s : path %s is a value (try use DeleteValue(const RWCString & path)), return FALSE\n", op,
        path);
  }
  Tree_Node* parent = found->GetParent();
  if (!parent) {
    return logger.reject(FALSE, "%s : for path <%s> fail to get value parent, return FALSE\n", op,
                         path);
  }
  return parent->Remove(Tree_NodePtr(found));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::DeleteValue(const RWCString& path) try {
  constexpr char op[] = "DeleteValue(const RWCString & path)";
  const cfg::actual_path actual(path);
  if (actual.empty()) return logger.reject(FALSE, "%s : path is empty string, return FALSE\n", op);
  if (!IsValidPath(path, "CFG_SubTree::DeleteValue")) return FALSE;
  if (!m_data) return logger.reject(FALSE, "%s : This sub tree data is null, return FALSE\n", op);
  Tree_Node* found = m_data->Find(actual);
  if (!found) {
    return logger.reject_at(LOG_LEVEL_INFORMATION, TRUE,
                            "%s : path %s does not exist, return TRUE\n", op, path);
  }
  if (!found->IsLeaf()) {
    return logger.reject(
        FALSE,
        "%s : path %s is a sub tree (try use DeleteSubTree(const RWCString & path)), return FALSE\n",
        op, path);
  }
  Tree_Node* parent = found->GetParent();
  if (!parent) {
    return logger.reject(FALSE, "%s : fail to get sub tree parent for path %s, return FALSE\n", op,
                         path);
  }
  return parent->Remove(Tree_NodePtr(found));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  logger.info("Start m_name  path <%s>  on sub tree <%s>\n", path, [&] { return path_of(m_data); });
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog("AddOrReplaceSubTree(CFG_SubTree * sub_tree,const RWCString & path)",
                             sub_tree, path, data, key_name)) {
    return FALSE;
  }
  Tree_NodePtr copy = data->DuplicateFromHereDown(TRUE);
  if (!copy) {
    return logger.reject(
        FALSE,
        "AddOrReplaceSubTree(CFG_SubTree* sub_tree,const RWCString & path), fail to duplicate sub tree data, return FALSE\n");
  }
  return WriteSubTree(copy, change_string_with_properties(path));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SubTree::WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) {
  constexpr char op[] = "WriteSubTree(Tree_NodePtr sub_tree,const RWCString & path)";
  if (!sub_tree || !m_data) {
    return logger.reject(
        FALSE,
        "%s: sub tree data is null, return FALSE , path for insert <%s>,  on sub tree <%s>\n", op,
        path, [&] { return path_of(m_data); });
  }
  Tree_Node::ChangeTreeNodePtrProtection(sub_tree, Tree_Node::TRUE_BOOL);
  if (path.isNull() && sub_tree->NameView() == m_data->NameView() && !m_data->IsLeaf()) {
    sub_tree->StandWhere(*m_data);
    m_data = sub_tree;
    return TRUE;
  }
  if (m_data->Put(path, sub_tree)) return TRUE;
  return logger.reject(FALSE, "%s: parent path %s is a value, return FALSE\n", op, path);
}

int CFG_SubTree::SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) {
  constexpr char op[] = "SetOrRanameKeyName(const RWCString & path,const RWCString & key_name)";
  if (key_name.isNull())
    return logger.reject(FALSE, "%s : key_name is empty string, return FALSE\n", op);
  if (const char* fault = cfg::fault_of_name(key_name)) {
    return logger.reject(FALSE, "%s : key_name <%s>: %s, return FALSE\n", op, key_name, fault);
  }
  if (!m_data) return logger.reject(FALSE, "%s : This sub tree data is null, return FALSE\n", op);
  Tree_Node* found = m_data->Find(path);
  if (!found) {
    return logger.reject(FALSE,
                         "%s : path %s not exist as sub tree on sub tree <%s>, return FALSE\n", op,
                         path, [&] { return path_of(m_data); });
  }
  if (found->SetKeyName(key_name)) return TRUE;
  return logger.reject(FALSE, "%s : the parent of path %s has a child %s already, return FALSE\n",
                       op, path, key_name);
}

char* CFG_SubTree::SerializeSubTree(CFG_SubTree* sub, int& buffer_length) try {
  constexpr char op[] = "SerializeSubTree(CFG_SubTree* sub,int & buffer_length)";
  buffer_length = 0;
  if (!sub) return logger.reject(nullptr, "%s : sub parameter is null, return NULL\n", op);
  char* const bytes = Tree_Node::GetSerializedTreeNode(sub->m_data, buffer_length, false);
  return bytes ? bytes : logger.reject(nullptr, "%s : Fail to write subtree, return NULL\n", op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// --- merges that move nodes --------------------------------------------------------------------

int CFG_SubTree::MergeSubTree(CFG_SubTree* other, const RWCString& stop_path) try {
  if (!other || other->IsDataNull()) {
    return logger.reject_at(LOG_LEVEL_DETAIL, 0, "MergeSubTree: Trying to merge null nodes\n");
  }
  if (IsDataNull()) return MergeTreeNodes(m_data, other->m_data, stop_path);
  if (m_data->GetPath() != other->m_data->GetPath()) {
    logger.info("MergeSubTree: trying to merge trees with different path.\n");
  }
  if (m_data->NameView() != other->m_data->NameView()) {
    return logger.reject_at(LOG_LEVEL_WARNING, -1,
                            "MergeSubTree: trying to merge two different trees\n");
  }
  return MergeTreeNodes(m_data, other->m_data, stop_path);
} catch (...) {
  return cfg::answered(logger, -1);
}

int CFG_SubTree::MergeTreeNodes(Tree_NodePtr destination, Tree_NodePtr source,
                                const RWCString& stop_path) {
  if (!destination || !source) {
    return logger.reject_at(LOG_LEVEL_WARNING, -1, "MergeTreeNodes: Trying to merge null nodes\n");
  }
  cfg::merge_moving(*destination, *source, stop_path);
  return 0;
}

int CFG_SubTree::MergeDeletionSubTree(CFG_SubTree* other) try {
  if (!other || other->IsDataNull()) {
    return logger.reject_at(LOG_LEVEL_DETAIL, 0,
                            "MergeDeletionSubTree: Trying to merge null nodes\n");
  }
  if (!IsDataNull() && m_data->GetPath() != other->m_data->GetPath()) {
    return logger.reject_at(LOG_LEVEL_WARNING, -1,
                            "MergeSubTree: trying to merge two different trees\n");
  }
  return MergeDeletionTreeNodes(m_data, other->m_data);
} catch (...) {
  return cfg::answered(logger, -1);
}

int CFG_SubTree::MergeDeletionTreeNodes(Tree_NodePtr destination, Tree_NodePtr deletions) {
  int missing = 1;
  if (destination && deletions) missing = cfg::remove_named(*destination, *deletions);
  while (missing-- > 0) logger.detail("MergeDeletionTreeNodes: Trying to merge null nodes\n");
  return 0;
}
