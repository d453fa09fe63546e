#include "answers.h"

#include <tree/Tree_Node.h>

namespace service {

using namespace cfg::protocol;

void write_success(Conn_FormWriter& frame, int code) {
  frame.WriteLong(CFG_FLD_SUCCESS_CODE, code);
}

void write_reason(Conn_FormWriter& frame, std::string_view reason) {
  if (!reason.empty()) frame.WriteString(CFG_FLD_REASON, reason);
}

void write_number(Conn_FormWriter& frame, int number) { frame.WriteInt(CFG_FLD_NUMBER, number); }

void write_text(Conn_FormWriter& frame, const RWCString& text) {
  frame.WriteString(CFG_FLD_RESULT, text);
}

// Without a count the client's list is null, which is what nothing is.
void write_list(Conn_FormWriter& frame, std::unique_ptr<String_Arr> list) {
  if (!list) return;
  frame.WriteLong(CFG_FLD_COUNT, list->GetArrLen());
  for (int i = 0; i < list->GetArrLen(); ++i) frame.WriteString(CFG_FLD_RESULT, list->GetStr(i));
}

void write_records(Conn_FormWriter& frame, std::unique_ptr<Tree_PathAndValueArray> records) {
  if (!records) return;
  frame.WriteLong(CFG_FLD_COUNT, records->m_count);
  for (int i = 0; i < records->m_count; ++i) {
    frame.WriteString(CFG_FLD_RESULT, records->GetPV(i)->GetPath());
    frame.WriteString(CFG_FLD_RESULT, records->GetPV(i)->GetValue());
  }
}

void write_empty_list(Conn_FormWriter& frame) { frame.WriteLong(CFG_FLD_COUNT, 0); }

void write_found(Conn_FormWriter& frame, const RWCString& value, const RWCString& path) {
  frame.WriteLong(CFG_FLD_SUCCESS_CODE, value.isNull() ? 0 : 1);
  frame.WriteString(CFG_FLD_VALUE, value);
  frame.WriteString(CFG_FLD_PATH, path);
}

bool write_sub_tree(Conn_FormWriter& frame, std::unique_ptr<CFG_SubTree> sub_tree,
                    StoreRepository& store) {
  if (!sub_tree) return frame.WriteBinary(CFG_FLD_SUBTREE, nullptr, 0, CONN_FORM_COPIES);
  const int size = Tree_Node::GetSerializedSize(sub_tree->GetData());
  if (size < 0 || !store.HasRoomFor(static_cast<size_t>(size))) return false;
  char* const bytes = frame.WriteInPlace(CFG_FLD_SUBTREE, static_cast<size_t>(size));
  if (bytes) Tree_Node::WriteSerialized(sub_tree->GetData(), bytes);
  return bytes != nullptr;
}

}  // namespace service
