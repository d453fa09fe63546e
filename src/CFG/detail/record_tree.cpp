#include <CFG/detail/record_tree.h>
#include <tree/Tree_Node.h>

#include <logging/Logger.h>

namespace cfg {

namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);
constexpr char op[] = "CreateTreeFromNodeIdVec(RWTPtrOrderedVector<Tree_IdNodeInfo> * vec)";

Tree_Node* at_or_above(Tree_Node* current, int id) {
  if (current->GetNodeId() == id) return current;
  for (Tree_Node* above = current->GetParent(); above; above = above->GetParent()) {
    if (above->GetParent() && above->GetNodeId() == id) return above;
  }
  return nullptr;
}

}  // namespace

Tree_Node* record_tree::find_upwards(Tree_Node* current, int id) {
  if (!current) {
    return logger.reject(nullptr, "Tree parameter parent is null, return NULL_TREE_NODE_PTR\n");
  }
  if (Tree_Node* found = at_or_above(current, id)) return found;
  if (current->GetParent()) {
    return logger.reject(nullptr,
                         "first_parent->GetParent() return null, return NULL_TREE_NODE_PTR\n");
  }
  return logger.reject(nullptr, "Tree parameter parent is null, return NULL_TREE_NODE_PTR\n");
}

// Without a search; NULL when it takes one.
inline Tree_Node* record_tree::near(int parent_id) const {
  if (parent_id == m_current->GetNodeId()) return m_current;
  if (parent_id == m_last_id) return m_last;
  return parent_id == 0 ? m_top.get() : nullptr;
}

bool record_tree::add(const node_record& record) {
  if (m_has_failed) return false;
  if (!m_top) {
    m_top = new Tree_Node(record.name);
    m_top->SetNodeId(record.id);
    m_current = m_last = m_top.get();
    m_last_id = record.id;
    return true;
  }
  if (!m_left_out.empty()) {
    if (m_left_out.count(record.parent_id) != 0) return leave_out(record);
    m_left_out.clear();
  }
  Tree_Node* parent = near(record.parent_id);
  if (!parent) parent = find_upwards(m_current, record.parent_id);
  if (parent) return add_below(*parent, record) || fail();
  return logger.reject(
      fail(), "%s : Fail to get parent in tree building , return NULL_TREE_NODE_PTR\n", op);
}

bool record_tree::add_below(Tree_Node& parent, const node_record& record) {
  Tree_Node* const node = record.value.empty()
                              ? parent.AddKey(record.name)
                              : parent.AddValue(record.name, record.value, record.is_change >= 1);
  if (!node) {
    if (record.name == empty_name && !parent.IsLeaf()) return leave_out(record);
    const char* why = parent.IsLeaf()       ? "it is a value"
                      : record.name.empty() ? "the name is empty"
                                            : "it has a child of that name already";
    return logger.reject(
        false, "%s : <%s> can not be added to <%s>: %s, return NULL_TREE_NODE_PTR\n", op,
        record.name, [&] { return parent.GetPath(); }, why);
  }
  node->SetNodeId(record.id);
  m_current = &parent;
  m_last = node;
  m_last_id = record.id;
  return true;
}

bool record_tree::leave_out(const node_record& record) {
  m_left_out.insert(record.id);
  ++m_left_out_count;
  return true;
}

bool record_tree::fail() {
  m_has_failed = true;
  m_top = nullptr;
  m_current = m_last = nullptr;
  return false;
}

Tree_NodePtr record_tree::finish() {
  if (m_left_out_count > 0) {
    logger.warning("%s : %d records of further keys with length 0 are left out\n", op,
                   m_left_out_count);
  }
  if (!m_top && !m_has_failed) {
    logger.error("%s : vec parameter is null or empty , return NULL_TREE_NODE_PTR\n", op);
  }
  return m_top;
}

RWCString record_tree::path_of(int parent_id) const {
  if (!m_top) return {};
  Tree_Node* parent = near(parent_id);
  if (!parent) parent = at_or_above(m_current, parent_id);
  return parent ? parent->GetPath() : RWCString();
}

}  // namespace cfg
