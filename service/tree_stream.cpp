#include "tree_stream.h"

namespace service {

using namespace cfg::protocol;

TreeStream::~TreeStream() {
  if (m_is_started) m_store.CloseTreeQuery();
}

bool TreeStream::start(const Request& request) {
  RWCString path = request.path;
  const RWCString* since = request.seq_number.isNull() ? nullptr : &request.seq_number;
  const bool deleted = request.row->command == Command::GET_SUB_DEL_SEQ;
  m_is_started = m_store.StartTreeQuery(path, false, since, deleted) != -1;
  if (m_is_started) m_path = m_store.GetQueryRootPath();
  m_has_tree = m_is_started && m_store.QueryHasTree();
  m_chunk.reserve(CHUNK);
  return m_is_started;
}

bool TreeStream::write_next(Conn_FormWriter& frame, bool& is_last) {
  is_last = false;
  if (m_is_first && !frame.WriteString(CFG_FLD_PATH, m_path)) return false;
  read_ahead();
  m_is_ahead = false;
  if (m_is_failed) return false;
  if (m_is_first && m_is_at_end && m_chunk.empty() && m_has_tree) {
    // A key with nothing below it: the name stands for a record, since no chunk at all would
    // mean that there is no key.
    m_chunk.append(Tree_EmptySubTree_DummyName).append(2, '\0');
  }
  m_is_first = false;
  const bool has_content = !m_chunk.empty();
  if (has_content && !frame.WriteString(CFG_FLD_TREE_CHUNK, m_chunk)) return false;
  is_last = m_is_at_end;
  return !is_last || frame.WriteString(CFG_FLD_TREE_CHUNK, "");
}

void TreeStream::read_ahead() {
  if (m_is_ahead || m_is_at_end) return;
  m_is_ahead = true;
  m_chunk.clear();
  m_is_at_end = !m_store.EachFromQuery([this](std::string_view path, std::string_view value) {
    m_chunk.append(path).push_back('\0');
    m_chunk.append(value).push_back('\0');
    return m_chunk.size() < CHUNK;
  });
  m_is_failed = m_is_at_end && m_store.IsQueryFailed();
}

}  // namespace service
