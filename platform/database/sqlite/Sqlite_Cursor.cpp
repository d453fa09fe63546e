#include <database/sqlite/Sqlite_Cursor.h>

#include <utility>

#include <database/Db_Path.h>

Db_Result Sqlite_Cursor::damaged(std::string_view what, std::string_view path) {
  m_session.fail("read", std::string(what).append(" <").append(path).append(">"));
  return Db_Result::FAILED;
}

Db_Result Sqlite_Cursor::next(Db_Entry& entry) {
  if (!m_is_kept) return read(entry);
  if (m_next == m_rest.size()) return m_end;
  const Row& row = m_rest[m_next++];
  entry = {row.path, row.value, row.sequence};
  return Db_Result::OK;
}

void Sqlite_Cursor::keep_rest() {
  if (m_is_kept) return;
  Db_Entry entry;
  while ((m_end = read(entry)) == Db_Result::OK) {
    m_rest.push_back({std::string(entry.path), std::string(entry.value), entry.sequence});
  }
  m_is_kept = true;
  m_statement.rewind();
}

// --- ranges -----------------------------------------------------------------------------------

Sqlite_RangeCursor::Sqlite_RangeCursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open,
                                       std::string_view from, std::string_view to,
                                       int64_t above_sequence)
    : Sqlite_Cursor(session, sql, open),
      m_has_numbers(sql == Sqlite_Sql::RANGE_NUMBERS),
      m_above_sequence(above_sequence),
      m_from(from),
      m_to(to) {
  if (is_ready()) statement().bind(1, m_from);
}

void Sqlite_RangeCursor::begin_at(std::string from) {
  m_from = std::move(from);
  m_is_before = true;
  statement().rewind();
  statement().bind(1, m_from);
}

Db_Result Sqlite_RangeCursor::read(Db_Entry& entry) {
  Db_Result result;
  do {
    result = read_next(entry);
  } while (result == Db_Result::OK && m_has_numbers && entry.sequence <= m_above_sequence);
  return result;
}

Db_Result Sqlite_RangeCursor::read_next(Db_Entry& entry) {
  while (!m_is_over) {
    const Db_Result result = step();
    if (result == Db_Result::FAILED) return result;
    if (result == Db_Result::NOT_FOUND) return damaged("rows are missing behind", m_from);
    const std::string_view path = statement().text(0);
    const Sqlite_Row row(statement().text(1));
    const Sqlite_PathSum sums(path);
    if (!row.is_whole(sums)) return damaged("there is damage at", path);
    const bool is_first = std::exchange(m_is_before, false);
    const bool is_before = is_first && path < m_from;
    if (is_first && !is_before) m_link = Sqlite_PathSum("").link();
    if (!is_before && row.link() != m_link) return damaged("rows are missing before", path);
    m_link = sums.link();
    if (is_before) continue;
    if (path < m_from) return damaged("the order is lost at", path);
    if (path >= m_to) {
      m_is_over = true;
      statement().rewind();
      break;
    }
    entry = {path, row.value(), 0};
    if (!m_has_numbers) return Db_Result::OK;
    entry.sequence = statement().number(2);
    if (row.has_number(sums, entry.sequence)) return Db_Result::OK;
    return damaged("there is damage in the number of", path);
  }
  return Db_Result::NOT_FOUND;
}

// --- children ---------------------------------------------------------------------------------

Sqlite_ChildCursor::Sqlite_ChildCursor(Sqlite_Session& session, Open& open, std::string_view path)
    : Sqlite_RangeCursor(session, Sqlite_Sql::RANGE, open, Db_Range(path).from, Db_Range(path).to),
      m_below(path.empty() ? 0 : path.size() + 1) {}

Db_Result Sqlite_ChildCursor::read(Db_Entry& entry) {
  for (;;) {
    const Db_Result result = Sqlite_RangeCursor::read(entry);
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
  if (!m_is_state_held && session().hold_state() != Db_Result::OK) return Db_Result::FAILED;
  m_is_state_held = true;
  m_passed = 0;
  begin_at(std::string(branch).append("]"));
  return Db_Result::OK;
}

// --- by number --------------------------------------------------------------------------------

Sqlite_NumberCursor::Sqlite_NumberCursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open,
                                         std::string_view from, std::string_view to,
                                         int64_t above_sequence)
    : Sqlite_Cursor(session, sql, open), m_from(from), m_to(to) {
  if (!is_ready()) return;
  statement().bind(1, m_from);
  statement().bind(2, m_to);
  if (sql != Sqlite_Sql::DELETED) statement().bind(3, above_sequence);
}

Db_Result Sqlite_NumberCursor::read(Db_Entry& entry) {
  const Db_Result result = step();
  if (result != Db_Result::OK) return result;
  const std::string_view path = statement().text(0);
  const Sqlite_Row row(statement().text(1));
  const Sqlite_PathSum sums(path);
  const int64_t sequence = statement().number(2);
  if (!row.is_whole(sums) || !row.has_number(sums, sequence)) {
    return damaged("there is damage at", path);
  }
  entry = {path, row.value(), sequence};
  return result;
}
