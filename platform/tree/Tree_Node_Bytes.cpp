// A tree as one flat array of bytes, as it travels and is stored:
//
//   header, only where writer and reader agree on one
//     4   length L of the virtual path, 0 or more
//     L   virtual path: the full path of the key that the top node hangs under
//   records, one a node, to the end of the array
//     4   id: 0 for the top node, counting up from record to record
//     4   id of the parent, -1 for the top node
//     4   length N of the name, 1 to 3000
//     N   name
//     4   length V of the text, 0 for a key
//     V   text                         } only of a value
//     4   is-change, 1 or 0            }
//
// Integers are signed and big-endian; none may be -100. Texts have no terminator. A node stands
// before its children and directly behind what stands before it in tree order. The reader drops
// NUL bytes at the ends of names and texts, and takes a record without text for a key: what
// would come back changed has no such form and is refused.
#include <tree/Tree_Node.h>

#include <climits>
#include <cstring>
#include <memory>
#include <vector>

#include <logging/Logger.h>
#include <system/Sys_Block.h>
#include <tree/Tree_IdNodeInfo.h>

namespace {

constexpr Log_Logger logger("platform/tree/Tree_Node", 502);

constexpr uint64_t kIntegers = 4 * sizeof(int32_t);  // of a key's record

// Calls visit(node, id, parent id) for each node but those at and below `left_out`, until it
// returns false.
template <class Visit>
bool for_each_record(const Tree_Node& top, const Tree_Node* left_out, Visit&& visit) {
  struct Open {
    const Tree_NodePtr* next;
    const Tree_NodePtr* end;
    uint32_t id;
  };
  std::vector<Open> way;
  uint32_t next_id = 0;
  const Tree_Node* node = &top;
  uint32_t parent_id = static_cast<uint32_t>(Tree_IdNodeInfo::TOP_PARENT_ID);
  for (;;) {
    if (node && node != left_out) {
      const uint32_t id = next_id++;
      if (!visit(*node, id, parent_id)) return false;
      if (!node->IsEmpty()) {
        const Tree_ChildList::Places children = node->Children()->places();
        way.push_back({children.begin, children.end, id});
      }
    }
    while (!way.empty() && way.back().next == way.back().end) way.pop_back();
    if (way.empty()) return true;
    Open& open = way.back();
    parent_id = open.id;
    if (open.end - open.next > 4) __builtin_prefetch(open.next[4].get());
    node = (open.next++)->get();
  }
}

bool has_nul_at_an_end(std::string_view text) {
  return text.front() == '\0' || text.back() == '\0';
}

// Why a reader would not give back this node; NULL when it would.
const char* obstacle(const Tree_Node& node) {
  const std::string_view name = node.NameView();
  if (name.empty()) return "its name is empty";
  if (name.size() > Tree_IdNodeInfo::MAX_PATH_LENGTH) return "its name is too long";
  if (has_nul_at_an_end(name)) return "its name begins or ends with a NUL byte";
  if (!node.IsLeaf()) return nullptr;
  const std::string_view text = node.GetText();
  if (text.empty()) return "it is a value without text";
  return has_nul_at_an_end(text) ? "its text begins or ends with a NUL byte" : nullptr;
}

char* put(char* to, uint32_t value) {
  const unsigned char bytes[] = {
      static_cast<unsigned char>(value >> 24), static_cast<unsigned char>(value >> 16),
      static_cast<unsigned char>(value >> 8), static_cast<unsigned char>(value)};
  std::memcpy(to, bytes, sizeof bytes);
  return to + sizeof bytes;
}

char* put(char* to, std::string_view text) {
  to = put(to, static_cast<uint32_t>(text.size()));
  return to + text.copy(to, text.size());
}

// The path of the key that the node hangs under, as far as it is known.
RWCString path_above(const Tree_Node& node) {
  RWCString path = node.GetFullPath();
  const size_t name = node.NameView().size();
  return path.remove(path.length() > name ? path.length() - name - 1 : 0);
}

constexpr char kSerialize[] = "GetSerializedTreeNode(Tree_NodePtr & node,int & length,bool)";

// -1, with the reason in the log, when no array can hold it.
int serialized_size(const Tree_NodePtr& top, const RWCString* header, const Tree_Node* left_out) {
  if (top->IsLeaf()) {
    return logger.reject(-1, "%s : <%s> is a value and not a key, return NULL\n", kSerialize,
                         [&] { return top->GetPath(); });
  }
  uint64_t size = header ? sizeof(int32_t) + header->length() : 0;
  const bool can_be_read = for_each_record(*top, left_out, [&](const Tree_Node& node, auto, auto) {
    if (const char* why = obstacle(node)) {
      return logger.reject(
          false, "%s : <%s> cannot be written: %s, return NULL\n", kSerialize,
          [&] { return node.GetPath(); }, why);
    }
    size += kIntegers + node.NameView().size();
    if (node.IsLeaf()) size += node.GetText().size() + sizeof(int32_t);
    return true;
  });
  if (!can_be_read) return -1;
  if (size > INT_MAX) {
    return logger.reject(
        -1, "%s : <%s> takes %llu bytes, more than an array can have, return NULL\n", kSerialize,
        [&] { return top->GetPath(); }, size);
  }
  return static_cast<int>(size);
}

void serialize(const Tree_NodePtr& top, const RWCString* header, const Tree_Node* left_out,
               char* at) {
  if (header) at = put(at, *header);
  for_each_record(*top, left_out, [&](const Tree_Node& node, uint32_t id, uint32_t parent_id) {
    at = put(put(at, id), parent_id);
    at = put(put(at, node.NameView()), node.GetText());
    if (node.IsLeaf()) at = put(at, static_cast<uint32_t>(node.GetTreeValue()->IsChange()));
    return true;
  });
}

}  // namespace

char* Tree_Node::GetSerializedTreeNode(const Tree_NodePtr& node, int& length,
                                       bool with_virtual_path) {
  return GetSerializedTreeNodeSkipPath(node, length, with_virtual_path, RWCString());
}

char* Tree_Node::GetSerializedTreeNodeSkipPath(const Tree_NodePtr& node, int& length,
                                               bool with_virtual_path, const RWCString& skip_path) {
  length = 0;
  if (!node) return logger.reject(nullptr, "%s : node is null, return NULL\n", kSerialize);
  const RWCString header = with_virtual_path ? path_above(*node) : RWCString();
  const RWCString* const given = with_virtual_path ? &header : nullptr;
  const Tree_Node* const named = node->Find(skip_path);
  const Tree_Node* const left_out = named == node.get() ? nullptr : named;
  const int size = serialized_size(node, given, left_out);
  if (size < 0) return nullptr;
  auto bytes = std::make_unique_for_overwrite<char[]>(static_cast<size_t>(size));
  Sys_AskForHugePages(bytes.get(), static_cast<size_t>(size));
  serialize(node, given, left_out, bytes.get());
  length = size;
  return bytes.release();
}

int Tree_Node::GetSerializedSize(const Tree_NodePtr& node) {
  return serialized_size(node, nullptr, nullptr);
}

void Tree_Node::WriteSerialized(const Tree_NodePtr& node, char* to) {
  serialize(node, nullptr, nullptr, to);
}
