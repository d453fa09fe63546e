// A tree on its way to a client.
#pragma once

#include <string>

#include <connection/Conn_Form.h>

#include "request.h"
#include "stores.h"

namespace service {

// Takes the records of a tree query from the store, a chunk at a time, so that a tree takes no
// memory here whatever its size. The chunks show the tree as it was when the query began. One
// thread at a time.
class TreeStream {
 public:
  static constexpr size_t CHUNK = 64 * 1024;

  explicit TreeStream(StoreRepository& store) : m_store(store) {}
  TreeStream(const TreeStream&) = delete;
  TreeStream& operator=(const TreeStream&) = delete;
  ~TreeStream();

  // Starts the query of a CFG_GET_SUB_SEQ or CFG_GET_SUB_DEL_SEQ. False when it cannot be opened.
  bool start(const Request& request);
  // Writes the next chunk into a frame that is begun. Sets `is_last` when it was the last one.
  // False when the store fails on the way: what was sent is no tree.
  bool write_next(Conn_FormWriter& frame, bool& is_last);
  // Reads what write_next writes next, while the chunk before is on its way.
  void read_ahead();

 private:
  StoreRepository& m_store;
  std::string m_chunk;
  RWCString m_path;
  bool m_is_started = false;
  bool m_has_tree = false;
  bool m_is_first = true;
  bool m_is_ahead = false;  // the chunk is the next one
  bool m_is_at_end = false;
  bool m_is_failed = false;
};

}  // namespace service
