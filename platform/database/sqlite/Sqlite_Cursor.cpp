#include <database/sqlite/Sqlite_Cursor.h>

Db_Result Sqlite_Cursor::read(Db_Entry& entry) {
  const Db_Result result = step();
  if (result == Db_Result::OK) entry = m_statement.entry();
  return result;
}

Db_Result Sqlite_Cursor::next(Db_Entry& entry) {
  if (!m_is_kept) return read(entry);
  if (m_next == m_rest.size()) return m_end;
  const Row& row = m_rest[m_next++];
  entry = {row.path, row.value, 0};
  return Db_Result::OK;
}

void Sqlite_Cursor::keep_rest() {
  if (m_is_kept) return;
  Db_Entry entry;
  while ((m_end = read(entry)) == Db_Result::OK) {
    m_rest.push_back({std::string(entry.path), std::string(entry.value)});
  }
  m_is_kept = true;
  m_statement.rewind();
}

Sqlite_ChildCursor::Sqlite_ChildCursor(Sqlite_Session& session, Open& open, std::string_view path)
    : Sqlite_Cursor(session, Sqlite_Sql::RANGE, open),
      m_session(session),
      m_below(path.empty() ? 0 : path.size() + 1) {
  if (!path.empty()) m_from.assign(path).append("\\");
  m_to = path.empty() ? std::string("\xff\xff\xff\xff") : std::string(path) + "]";
  if (!is_ready()) return;
  statement().bind(1, m_from);
  statement().bind(2, m_to);
}

Db_Result Sqlite_ChildCursor::read(Db_Entry& entry) {
  for (;;) {
    const Db_Result result = Sqlite_Cursor::read(entry);
    if (result != Db_Result::OK) return result;
    const size_t cut = entry.path.find('\\', m_below);
    if (cut == entry.path.npos) break;
    if (++m_passed < kSteps) continue;
    if (pass_over(entry.path.substr(0, cut)) == Db_Result::FAILED) return Db_Result::FAILED;
  }
  m_passed = 0;
  return Db_Result::OK;
}

Db_Result Sqlite_ChildCursor::pass_over(std::string_view branch) {
  if (!m_is_state_held && m_session.hold_state() != Db_Result::OK) return Db_Result::FAILED;
  m_is_state_held = true;
  m_passed = 0;
  m_from.assign(branch).append("]");
  statement().rewind();
  statement().bind(1, m_from);
  return Db_Result::OK;
}
