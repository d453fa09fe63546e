// What a client makes of an answer: lists, records, values, trees that come in chunks. Whatever
// stands in it, the client gives what the fields say or nothing, and the next request gets its own
// answer.
//
// The first byte chooses the request. The rest is the script of the answer, which a service in
// this process sends: of each field a byte for its kind, one for the length of its text or its
// number, and the text.
#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <CFG/CFG_Connector.h>
#include <logging/Tmr_GLog.h>
#include <tree/Tree_Node.h>
#include "../CFG/scripted_service.h"
#include "reach.h"

namespace {

Reach tree_received("a tree is received");
Reach list_received("a list is received");
Reach records_received("records are received");
Reach value_found("a value is found by its rules");
Reach bytes_received("a byte array is received");

enum { PATH = 4, SUBTREE = 7, CHUNK = 8, RESULT = 9, CODE = 10, VALUE = 11, COUNT = 12 };

std::vector<Frame> answer_of_script(std::string_view script) {
  static constexpr int numbers[] = {RESULT, CHUNK, PATH, VALUE, SUBTREE, COUNT, CODE};
  std::vector<Frame> frames(1);
  while (script.size() >= 2) {
    const auto kind = static_cast<unsigned char>(script[0]) % (std::size(numbers) + 1);
    const char given = script[1];
    script.remove_prefix(2);
    if (kind == std::size(numbers)) {
      frames.emplace_back();
    } else if (numbers[kind] == COUNT || numbers[kind] == CODE) {
      frames.back().push_back({numbers[kind], long{static_cast<signed char>(given)}});
    } else {
      const size_t length = std::min<size_t>(static_cast<unsigned char>(given), script.size());
      frames.back().push_back({numbers[kind], std::string(script.substr(0, length))});
      script.remove_prefix(length);
    }
  }
  return frames;
}

// The fields one after the other, whichever frames they are in.
class Fields {
 public:
  explicit Fields(const std::vector<Frame>& frames) {
    for (const Frame& frame : frames) m_rest.insert(m_rest.end(), frame.begin(), frame.end());
  }
  const std::string* text(int number) {
    if (m_at == m_rest.size() || m_rest[m_at].number != number) return nullptr;
    return std::get_if<std::string>(&m_rest[m_at++].value);
  }
  const long* number(int number) {
    if (m_at == m_rest.size() || m_rest[m_at].number != number) return nullptr;
    return std::get_if<long>(&m_rest[m_at++].value);
  }
  // So many texts as the count says, or false.
  bool list(size_t texts_of_one, std::vector<std::string>& texts) {
    const long* count = number(COUNT);
    if (!count || *count < 0) return false;
    for (size_t i = 0; i < static_cast<size_t>(*count) * texts_of_one; ++i) {
      const std::string* next = text(RESULT);
      if (!next) return false;
      texts.push_back(*next);
    }
    return true;
  }

 private:
  std::vector<Field> m_rest;
  size_t m_at = 0;
};

void demand(bool is_right) {
  if (!is_right) std::abort();
}

// As callers see it, up to the first NUL.
bool is_same(const char* read, const std::string& sent) {
  return std::strcmp(read, sent.c_str()) == 0;
}

// --- requests ------------------------------------------------------------------------------------

void read_list(String_Arr* read, Fields fields) {
  const std::unique_ptr<String_Arr> owned(read);
  std::vector<std::string> texts;
  const bool is_whole = fields.list(1, texts);
  demand(is_whole == (read != nullptr));
  if (!read) return;
  list_received(read->GetArrLen() > 1);
  demand(static_cast<size_t>(read->GetArrLen()) == texts.size());
  for (size_t i = 0; i < texts.size(); ++i) {
    demand(is_same(read->GetStr(static_cast<int>(i)), texts[i]));
  }
}

void read_records(CFG_Connector& connector, Fields fields) {
  const std::unique_ptr<Tree_PathAndValueArray> read(connector.GetSubTreeValues("p"));
  std::vector<std::string> texts;
  const bool is_whole = fields.list(2, texts);
  demand(is_whole == (read != nullptr));
  if (!read) return;
  records_received(read->m_count > 1);
  demand(static_cast<size_t>(read->m_count) * 2 == texts.size());
  for (int i = 0; i < read->m_count; ++i) {
    const size_t at = static_cast<size_t>(i) * 2;
    demand(is_same(read->GetPV(i)->GetPath(), texts[at]));
    demand(is_same(read->GetPV(i)->GetValue(), texts[at + 1]));
  }
}

void read_value_by_rule(CFG_Connector& connector, Fields fields) {
  const char* rule[] = {"r"};
  char *value = nullptr, *path = nullptr;
  const bool is_found = connector.GetValue("v", rule, 1, &value, &path) == 0;
  const std::unique_ptr<char[]> owned_value(value), owned_path(path);
  const long* code = fields.number(CODE);
  const std::string* sent_value = code ? fields.text(VALUE) : nullptr;
  const std::string* sent_path = sent_value ? fields.text(PATH) : nullptr;
  demand(is_found == (sent_path && *code && *sent_value->c_str() && *sent_path->c_str()));
  value_found(is_found);
  demand(is_found == (value != nullptr) && is_found == (path != nullptr));
  demand(!is_found || (is_same(value, *sent_value) && is_same(path, *sent_path)));
}

void read_bytes(CFG_Connector& connector, Fields fields) {
  long length = 0;
  const std::unique_ptr<char[]> read(connector.GetSubTree("p", 0, length));
  const std::string* sent = fields.text(SUBTREE);
  demand((sent != nullptr) == (read != nullptr));
  bytes_received(sent && !sent->empty());
  demand(std::string_view(read.get() ? read.get() : "", static_cast<size_t>(length)) ==
         (sent ? *sent : ""));
}

// Every node has a name, and the texts of values are those that were sent.
void check_node(Tree_Node& node, const std::string& sent) {
  for (int i = 0; i < node.GetChildCount(); ++i) {
    Tree_Node& child = *node.GetChildAt(i);
    demand(!child.NameView().empty());
    if (child.IsLeaf()) {
      demand(!child.GetText().empty() && sent.find(child.GetText()) != std::string::npos);
    } else {
      check_node(child, sent);
    }
  }
}

void read_tree(Tree_NodePtr tree, Fields fields) {
  const std::string* path = fields.text(PATH);
  const std::string* chunk = path ? fields.text(CHUNK) : nullptr;
  if (!chunk || chunk->empty()) return demand(!tree);
  std::string sent;
  for (; chunk && !chunk->empty(); chunk = fields.text(CHUNK)) sent += *chunk;
  tree_received();
  demand(static_cast<bool>(tree));  // of a stream that breaks off, what there is of it
  check_node(*tree, sent);
}

void run(CFG_Connector& connector, unsigned request, const Fields& fields) {
  RWCString seq_number, tree_path;
  switch (request % 7) {
    case 0:
      return read_tree(connector.GetSubTreeBySeqNumber("p", seq_number, tree_path, false), fields);
    case 1:
      return read_tree(connector.GetSubTreeOnlyDeletedNodes("p", seq_number, tree_path, false),
                       fields);
    case 2:
      return read_list(connector.GetSubTreePaths("p"), fields);
    case 3:
      return read_list(connector.FillPath("p"), fields);
    case 4:
      return read_records(connector, fields);
    case 5:
      return read_value_by_rule(connector, fields);
    case 6:
      return read_bytes(connector, fields);
  }
}

constexpr const char* requests[] = {
    "CFG_GET_SUB_SEQ",         "CFG_GET_SUB_DEL_SEQ",          "CFG_GET_SUB_PATHS", "CFG_FILL_PATH",
    "CFG_GET_SUB_TREE_VALUES", "CFG_GET_VALUE_BY_SEARCH_RULE", "CFG_GET_SUB_INX"};

struct World {
  World() {
    TmrGLog.SetLevel(0);
    service.on("CFG_GET_VAL", ::answer_of({{RESULT, "its own"}}));
    connector.InitConn("127.0.0.1", service.port(), "", "fuzz", 1, 1);
  }
  ScriptedService service;
  CFG_Connector connector;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static World world;  // its thread ends before what the thread uses
  if (size == 0) return 0;
  const std::string_view script(reinterpret_cast<const char*>(data) + 1, size - 1);
  Answer answer;
  answer.frames = answer_of_script(script);
  world.service.on(requests[data[0] % std::size(requests)], answer);
  run(world.connector, data[0], Fields(answer.frames));
  demand(world.connector.GetValue("v") == "its own");
  world.service.take_requests();
  return 0;
}
