// What goes back to a client.
#pragma once

#include <memory>

#include <CFG/CFG_Protocol.h>
#include <CFG/CFG_SubTree.h>
#include <connection/Conn_Form.h>
#include <tree/String_Arr.h>
#include <tree/Tree_PathAndValueArray.h>

#include "stores.h"

namespace service {

// The fields of each kind of reply. Null is what there is for nothing.
void write_success(Conn_FormWriter& frame, int code);
void write_reason(Conn_FormWriter& frame, std::string_view reason);  // behind a code of 0
void write_number(Conn_FormWriter& frame, int number);
void write_text(Conn_FormWriter& frame, const RWCString& text);
void write_list(Conn_FormWriter& frame, std::unique_ptr<String_Arr> list);
void write_records(Conn_FormWriter& frame, std::unique_ptr<Tree_PathAndValueArray> records);
void write_empty_list(Conn_FormWriter& frame);  // of either: it is there and holds nothing
void write_found(Conn_FormWriter& frame, const RWCString& value, const RWCString& path);
// False when no byte array can hold the subtree, or there is no room for it.
bool write_sub_tree(Conn_FormWriter& frame, std::unique_ptr<CFG_SubTree> sub_tree,
                    StoreRepository& store);

}  // namespace service
