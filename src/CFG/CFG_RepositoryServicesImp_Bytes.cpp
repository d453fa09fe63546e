// Subtrees from byte arrays. platform/tree/Tree_Node_Bytes.cpp draws the format and writes it.
//
// Nodes are made while the array is read; nothing of it is kept besides. Lengths are held
// against the bytes that are left before anything is read, so that any bytes are safe. The
// first defect ends the reading.
#include <CFG/CFG_RepositoryServicesImp.h>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/record_tree.h>
#include <CFG/detail/subtree_filter.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_RepositoryServicesImp", 502);
constexpr char op[] = "CreateSubTreeFromByteArray(char* byteArray,int length)";

constexpr int kInteger = 4;
constexpr int kSmallestRecord = 4 * kInteger;
constexpr int kUsualRecord = 35;
constexpr int kEmptyNamesLogged = 100;

inline int big_endian(const char* bytes) {
  const auto at = [=](int i) { return uint32_t{static_cast<unsigned char>(bytes[i])}; };
  return static_cast<int>(at(0) << 24 | at(1) << 16 | at(2) << 8 | at(3));
}

class array_reader {
 public:
  array_reader(std::string_view bytes, std::string_view sub_path, bool skips)
      : m_bytes(bytes), m_filter(sub_path, skips, bytes.size() / kSmallestRecord) {}

  bool read_virtual_path(RWCString& path);
  // Reads to the end of the array, or to a record that has no place in the tree.
  bool read_records();
  Tree_NodePtr finish() { return m_tree.finish(); }

 private:
  bool read_record(cfg::node_record& record);
  bool read_name(cfg::node_record& record);
  bool read_value(cfg::node_record& record);
  bool take(int& value, const char* field) {
    if (left() < kInteger) return past_end(field, kInteger);
    value = big_endian(m_bytes.data() + m_offset);
    m_offset += kInteger;
    return true;
  }
  bool take(std::string_view& text, int length, const char* field) {
    if (left() < length) return past_end(field, length);
    text = m_bytes.substr(m_offset, static_cast<size_t>(length));
    m_offset += text.size();
    return true;
  }
  int left() const { return static_cast<int>(m_bytes.size() - m_offset); }
  bool past_end(const char* field, int length) const {
    return logger.reject(
        false,
        "%s : %s of %d bytes at offset %zu runs past the end of the array of %zu bytes, return NULL\n",
        op, field, length, m_offset, m_bytes.size());
  }
  auto path_of(int parent_id) const {
    return [=, this] { return m_tree.path_of(parent_id); };
  }

  std::string_view m_bytes;
  size_t m_offset = 0;
  cfg::subtree_filter m_filter;
  cfg::record_tree m_tree;
  int m_empty_names = 0;
};

bool array_reader::read_virtual_path(RWCString& path) {
  int length;
  if (!take(length, "the virtual path len")) return false;
  if (length == Tree_IdNodeInfo::INVALID) {
    logger.error("%s : fail to get virtual path len from byteArray parameter, return NULL\n", op);
  }
  if (length < 0) {
    return logger.reject(false, "%s : virtual path len less than zero, return NULL\n", op);
  }
  std::string_view text;
  if (!take(text, length, "the virtual path")) return false;
  path = text;
  return true;
}

bool array_reader::read_records() {
  cfg::node_record record;
  for (bool is_first = true; left() >= kInteger; is_first = false) {
    if (!read_record(record)) return false;
    const bool is_kept = m_filter.keeps(record.id, record.parent_id, record.name);
    if (is_first && !is_kept) return true;  // no top, no tree
    if (is_kept && !m_tree.add(record)) return true;
  }
  if (m_empty_names > kEmptyNamesLogged) {
    logger.warning("%s : %d more keys with length 0\n", op, m_empty_names - kEmptyNamesLogged);
  }
  return true;
}

bool array_reader::read_record(cfg::node_record& record) {
  if (!take(record.id, "the id")) return false;
  if (record.id == Tree_IdNodeInfo::INVALID) {
    return logger.reject(false, "%s : fail to get id from byteArray parameter, return NULL\n", op);
  }
  if (record.id < 0) {
    return logger.reject(false, "%s : id <%d> less than zero, return NULL\n", op, record.id);
  }
  if (!take(record.parent_id, "the parent id")) return false;
  if (record.parent_id == Tree_IdNodeInfo::INVALID) {
    return logger.reject(false,
                         "%s : fail to get parent id from byteArray parameter, return NULL\n", op);
  }
  if (record.parent_id < Tree_IdNodeInfo::TOP_PARENT_ID) {
    return logger.reject(false, "%s : parent id <%d> less than zero, return NULL\n", op,
                         record.parent_id);
  }
  return read_name(record) && read_value(record);
}

bool array_reader::read_name(cfg::node_record& record) {
  int length;
  if (!take(length, "the path len")) return false;
  const auto parent = path_of(record.parent_id);
  if (length == Tree_IdNodeInfo::INVALID) {
    return logger.reject(false, "%s : fail to get path len from byteArray parameter. Parent: %s\n",
                         op, parent);
  }
  if (length < 0) {
    return logger.reject(false, "%s : path len less or equal to zero. Parent: %s\n", op, parent);
  }
  if (length > Tree_IdNodeInfo::MAX_PATH_LENGTH) {
    return logger.reject(false, "%s : path len too long <%d>. Parent: %s\n", op, length, parent);
  }
  if (!take(record.name, length, "the path")) return false;
  record.name = Tree_IdNodeInfo::Stripped(record.name);
  if (!record.name.empty()) return true;
  record.name = cfg::record_tree::empty_name;
  if (++m_empty_names <= kEmptyNamesLogged) {  // each may name a path as long as the array
    logger.warning(
        "The parent '%s' has a key with length 0. Fix this with the configuration editor\n",
        parent);
  }
  return true;
}

bool array_reader::read_value(cfg::node_record& record) {
  int length;
  if (!take(length, "the value len")) return false;
  if (length == Tree_IdNodeInfo::INVALID) {
    return logger.reject(false,
                         "%s : fail to get value len from byteArray parameter, parent='%s'\n", op,
                         path_of(record.parent_id));
  }
  if (length < 0) {
    return logger.reject(false, "%s : val len less then zero, parent='%s'\n", op,
                         path_of(record.parent_id));
  }
  record.value = {};
  record.is_change = 0;
  if (length == 0) return true;
  if (!take(record.value, length, "the value") || !take(record.is_change, "is change"))
    return false;
  if (record.is_change == Tree_IdNodeInfo::INVALID) {
    return logger.reject(
        false, "%s : fail to get is change info from byteArray parameter, return NULL\n", op);
  }
  record.value = Tree_IdNodeInfo::Stripped(record.value);
  return true;
}

}  // namespace

CFG_SubTree* CFG_RepositoryServices::CreateSubTreeFromByteArray(const char* byteArray, int length) {
  return CreateSubTreeFromByteArray(byteArray, length, false, RWCString(), false);
}

CFG_SubTree* CFG_RepositoryServices::CreateSubTreeFromByteArray(const char* byteArray, int length,
                                                                bool with_virtual_path,
                                                                RWCString sub_path,
                                                                bool skip_sub_path) try {
  if (!byteArray) {
    return logger.reject_at(LOG_LEVEL_INFORMATION, nullptr,
                            "%s : byteArray parameter is NULL, return NULL\n", op);
  }
  if (length == 0) return nullptr;
  if (length < 0) {
    return logger.reject(nullptr, "%s : length parameter less than zero, return NULL\n", op);
  }
  Tree_Node::InitNodesPool(1 + length / kUsualRecord * 3 / 2);
  array_reader reader({byteArray, static_cast<size_t>(length)}, sub_path, skip_sub_path);
  RWCString virtual_path;
  if ((with_virtual_path && !reader.read_virtual_path(virtual_path)) || !reader.read_records()) {
    return logger.reject(nullptr, "Error in CreateSubTreeFromByteArray - returning NULL\n");
  }
  const Tree_NodePtr top = reader.finish();
  if (!top) {
    return logger.reject(nullptr, "%s : fail to create Tree_NodePtr from vector, return NULL\n",
                         op);
  }
  top->SetPathAbove(virtual_path);
  return new CFG_SubTree(top);  // its nodes are owned since they were made
} catch (...) {
  return cfg::answered(logger, nullptr);
}

Tree_NodePtr CFG_RepositoryServicesImp::CreateTreeFromNodeIdVec(
    const std::vector<Tree_IdNodeInfo>& records, bool) {
  cfg::record_tree tree;
  for (const Tree_IdNodeInfo& record : records) {
    const cfg::node_record view{record.GetId(), record.GetParentId(), record.PathView(),
                                record.ValueView(), record.IsChange()};
    if (!tree.add(view)) break;
  }
  return tree.finish();
}

Tree_Node* CFG_RepositoryServicesImp::GetParent(Tree_Node* current, const Tree_IdNodeInfo* record) {
  return cfg::record_tree::find_upwards(record ? current : nullptr,
                                        record ? record->GetParentId() : 0);
}

int CFG_RepositoryServicesImp::GetIntFromChar(const char* buffer, int& offset) {
  const int value = big_endian(buffer + offset);
  offset += kInteger;
  return value;
}
