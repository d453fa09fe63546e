#include <database/sqlite/Sqlite_Store.h>

#include <algorithm>
#include <utility>

#include <database/sqlite/Sqlite_Schema.h>

namespace {

// How long a read waits where it has to: while another process restores the log after a crash.
constexpr int kReadWait = 10000;

// The first place behind a path.
std::string behind(std::string_view path) { return std::string(path) + '\0'; }

}  // namespace

std::unique_ptr<Sqlite_Store> Sqlite_Store::Open(const std::string& file, std::string& reason) {
  std::unique_ptr<Sqlite_Store> store(new Sqlite_Store());
  if (!store->m_session.open(file) || !Sqlite_PrepareSchema(store->m_session)) {
    reason = store->error();
    return nullptr;
  }
  store->m_values.attach(store->m_session.handle());
  return store;
}

Sqlite_Store::~Sqlite_Store() = default;

void Sqlite_Store::set_trace(Trace trace, void* context) {
  m_trace = trace;
  m_trace_context = context;
  const auto tell = [](unsigned, void* self, void* statement, void*) {
    const auto* store = static_cast<const Sqlite_Store*>(self);
    char* sql = sqlite3_expanded_sql(static_cast<sqlite3_stmt*>(statement));
    store->m_trace(store->m_trace_context, sql ? sql : "");
    sqlite3_free(sql);
    return 0;
  };
  sqlite3_trace_v2(m_session.handle(), trace ? SQLITE_TRACE_STMT : 0, tell, this);
}

// --- reads
// ----------------------------------------------------------------------------------------

// A transaction reads its own changes, and what is read beside a cursor is as old as what that
// reads: neither is for others, nor from them.
Db_Result Sqlite_Store::get(std::string_view path, std::string& value) {
  if (!m_cursors.empty() || !sqlite3_get_autocommit(m_session.handle()) || m_trace) {
    return read(path, value);
  }
  Db_Result result = m_values.find(path, value);
  if (result != Db_Result::FAILED) return result;
  result = read(path, value);
  if (result != Db_Result::FAILED) m_values.keep(path, result, value);
  return result;
}

// What is not found may have been lost: its place is looked at.
Db_Result Sqlite_Store::read(std::string_view path, std::string& value) {
  Sqlite_Statement statement(m_session, Sqlite_Sql::GET);
  if (!statement.is_ready()) return Db_Result::FAILED;
  statement.bind(1, path);
  const Db_Result result = statement.step("read");
  if (result == Db_Result::FAILED) return result;
  if (result == Db_Result::OK) {
    const Sqlite_Row row(statement.text(0));
    if (!row.is_whole(Sqlite_PathSum(path))) return damaged("there is damage at", path);
    value.assign(row.value());
    return result;
  }
  statement.rewind();
  Sqlite_RangeCursor place(m_session, Sqlite_Sql::RANGE, m_cursors, path, behind(path));
  Db_Entry entry;
  const Db_Result found = place.is_ready() && place.start() ? place.next(entry) : Db_Result::FAILED;
  if (found == Db_Result::OK && entry.path != path) return damaged("the order is lost at", path);
  if (found == Db_Result::OK) value.assign(entry.value);  // it came in between
  return found;
}

Db_Result Sqlite_Store::damaged(std::string_view what, std::string_view path) {
  m_session.fail("read", std::string(what).append(" <").append(path).append(">"));
  return Db_Result::FAILED;
}

namespace {
template <class Cursor, class... Given>
std::unique_ptr<Db_Cursor> started(Given&&... given) {
  auto cursor = std::make_unique<Cursor>(std::forward<Given>(given)...);
  if (!cursor->is_ready() || !cursor->start()) return nullptr;
  return cursor;
}
}  // namespace

std::unique_ptr<Db_Cursor> Sqlite_Store::range(std::string_view from, std::string_view to,
                                               int64_t above_sequence, bool deleted) {
  const bool all = above_sequence <= 0;
  if (deleted) {
    const Sqlite_Sql sql = all ? Sqlite_Sql::DELETED : Sqlite_Sql::DELETED_ABOVE;
    return started<Sqlite_NumberCursor>(m_session, sql, m_cursors, from, to, above_sequence);
  }
  if (all) return started<Sqlite_RangeCursor>(m_session, Sqlite_Sql::RANGE, m_cursors, from, to);
  const Db_OneState state(*this);
  Sqlite_Statement asked(m_session, Sqlite_Sql::IS_BY_INDEX);
  if (!state || !asked.is_ready()) return nullptr;
  asked.bind(1, above_sequence);
  if (asked.step("read") != Db_Result::OK) return nullptr;
  if (asked.number(0)) {
    return started<Sqlite_NumberCursor>(m_session, Sqlite_Sql::CHANGED_ABOVE, m_cursors, from, to,
                                        above_sequence);
  }
  return started<Sqlite_RangeCursor>(m_session, Sqlite_Sql::RANGE_NUMBERS, m_cursors, from, to,
                                     above_sequence);
}

std::unique_ptr<Db_Cursor> Sqlite_Store::children(std::string_view path) {
  return started<Sqlite_ChildCursor>(m_session, m_cursors, path);
}

Db_Result Sqlite_Store::number(Sqlite_Sql sql, int64_t& number) {
  Sqlite_Statement statement(m_session, sql);
  const Db_Result result = statement.step("read");
  if (result == Db_Result::OK) number = statement.number(0);
  return result == Db_Result::NOT_FOUND ? damaged("there is damage in", "store") : result;
}

Db_Result Sqlite_Store::text(Sqlite_Sql sql, std::string& text) {
  Sqlite_Statement statement(m_session, sql);
  const Db_Result result = statement.step("read");
  if (result == Db_Result::OK) text.assign(statement.text(0));
  return result == Db_Result::NOT_FOUND ? damaged("there is damage in", "store") : result;
}

Db_Result Sqlite_Store::count(std::string_view from, std::string_view to, int64_t& rows) {
  const auto cursor = range(from, to, 0, false);
  Db_Result result = cursor ? Db_Result::OK : Db_Result::FAILED;
  Db_Entry entry;
  rows = 0;
  while (result == Db_Result::OK && (result = cursor->next(entry)) == Db_Result::OK) ++rows;
  return result == Db_Result::NOT_FOUND ? Db_Result::OK : result;
}

Db_Result Sqlite_Store::max_sequence(std::string_view from, std::string_view to, int64_t& number) {
  const Db_OneState state(*this);
  if (!state) return Db_Result::FAILED;
  number = 0;
  for (const bool deleted : {false, true}) {
    const auto cursor = deleted ? range(from, to, 0, true)
                                : started<Sqlite_RangeCursor>(m_session, Sqlite_Sql::RANGE_NUMBERS,
                                                              m_cursors, from, to);
    Db_Result result = cursor ? Db_Result::OK : Db_Result::FAILED;
    Db_Entry entry;
    while (result == Db_Result::OK && (result = cursor->next(entry)) == Db_Result::OK) {
      number = std::max(number, entry.sequence);
    }
    if (result == Db_Result::FAILED) return result;
  }
  return Db_Result::OK;
}

Db_Result Sqlite_Store::last_sequence(int64_t& number) {
  return this->number(Sqlite_Sql::LAST_SEQUENCE, number);
}
Db_Result Sqlite_Store::oldest_deletion(int64_t& number) {
  return this->number(Sqlite_Sql::OLDEST_DELETION, number);
}
Db_Result Sqlite_Store::sync_id(std::string& id) { return text(Sqlite_Sql::SYNC_ID, id); }
Db_Result Sqlite_Store::date_time(std::string& text) {
  return this->text(Sqlite_Sql::DATE_TIME, text);
}

Db_Result Sqlite_Store::check(std::string& reason) {
  int64_t last = 0;
  if (last_sequence(last) != Db_Result::OK) return Db_Result::FAILED;
  sqlite3_stmt* statement = nullptr;
  sqlite3_prepare_v2(m_session.handle(), "PRAGMA integrity_check(1)", -1, &statement, nullptr);
  const int code = sqlite3_step(statement);
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, 0));
  reason = code != SQLITE_ROW ? sqlite3_errmsg(m_session.handle()) : text ? text : "no memory";
  sqlite3_finalize(statement);
  if (reason != "ok") return Db_Result::NOT_FOUND;
  int64_t wrong = 0;
  const char numbers[] =
      "SELECT count(*) FROM (SELECT sequence, count(*) AS times FROM"
      "  (SELECT sequence FROM entry WHERE path <> CAST(x'ffffffff' AS TEXT)"
      "   UNION ALL SELECT sequence FROM deleted)"
      "  GROUP BY sequence) WHERE times > 1 OR sequence < 1"
      "  OR sequence > (SELECT last_sequence FROM store)";
  if (!m_session.ask(numbers, wrong, "check")) return Db_Result::FAILED;
  reason = wrong ? std::to_string(wrong) + " sequence numbers are out of range or given twice" : "";
  return wrong ? Db_Result::NOT_FOUND : Db_Result::OK;
}

// Where the file cannot be read on, what is behind the branch at hand is tried, then behind the one
// above it, and so on.
void Sqlite_Store::inspect(Db_Findings& findings) {
  std::string from;
  uint32_t link = Sqlite_PathSum("").link();
  while (!inspect_from(from, link, findings)) {
    findings.damage(error() + ", behind <" + from + ">");
    std::string last;
    do {
      last = from;
      from.erase(std::min(from.find_last_of("\\]"), from.size()));
      if (from.empty()) return;
      from += ']';
    } while (from <= last);
    link = 0;
  }
}

// Leaves where it came to. True at the end; the first row follows on any with a link of 0.
bool Sqlite_Store::inspect_from(std::string& from, uint32_t& link, Db_Findings& findings) {
  Sqlite_Statement rows(m_session, Sqlite_Sql::ROWS_FROM);
  if (!rows.is_ready()) return false;
  const std::string start = from;
  rows.bind(1, start);
  Db_Result result;
  while ((result = rows.step("read")) == Db_Result::OK) {
    const std::string_view path = rows.text(0);
    const Sqlite_Row row(rows.text(1));
    const Sqlite_PathSum sums(path);
    const int64_t sequence = rows.number(2);
    const std::string place = "<" + std::string(path) + ">";
    if (!row.is_whole(sums) || !row.has_number(sums, sequence) || path < from) {
      findings.damage("there is damage at " + place);
      link = 0;
      continue;
    }
    if (link && row.link() != link) findings.damage("rows are missing before " + place);
    link = sums.link();
    from = path;
    if (path == SQLITE_END) return true;
    findings.row({path, row.value(), sequence});
  }
  if (result == Db_Result::FAILED) return false;
  findings.damage("rows are missing behind <" + from + ">");
  return true;
}

// --- changes
// --------------------------------------------------------------------------------------

Db_Result Sqlite_Store::begin(int wait_milliseconds, int64_t& last_sequence) {
  for (Sqlite_Cursor* cursor : m_cursors) cursor->keep_rest();
  m_session.end_state();
  m_session.set_wait(wait_milliseconds);
  const bool is_begun =
      Sqlite_Statement(m_session, Sqlite_Sql::BEGIN_CHANGE).execute("lock") == Db_Result::OK;
  const bool was_busy = !is_begun && m_session.was_busy();
  m_session.set_wait(kReadWait);
  if (!is_begun) return was_busy ? Db_Result::BUSY : Db_Result::FAILED;
  m_is_bulk = false;
  const Db_Result result = this->last_sequence(last_sequence);
  m_last_sequence = last_sequence;
  if (result == Db_Result::OK) return result;
  rollback();
  return Db_Result::FAILED;
}

Db_Result Sqlite_Store::execute(Sqlite_Sql sql, int64_t number, const char* what) {
  Sqlite_Statement statement(m_session, sql);
  if (!statement.is_ready()) return Db_Result::FAILED;
  statement.bind(1, number);
  return statement.execute(what);
}

Db_Result Sqlite_Store::commit(int64_t last_sequence) {
  const Sqlite_Sql sql = m_is_bulk ? Sqlite_Sql::SET_LAST_BULK : Sqlite_Sql::SET_LAST;
  const bool is_counted = may_change() && (last_sequence == m_last_sequence ||
                                           execute(sql, last_sequence, "write") == Db_Result::OK);
  if (is_counted &&
      Sqlite_Statement(m_session, Sqlite_Sql::COMMIT).execute("write") == Db_Result::OK) {
    m_session.set_wait(kReadWait);
    return Db_Result::OK;
  }
  rollback();
  return Db_Result::FAILED;
}

void Sqlite_Store::rollback() {
  for (Sqlite_Cursor* cursor : m_cursors) cursor->keep_rest();
  if (sqlite3_get_autocommit(m_session.handle())) return;
  sqlite3_exec(m_session.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
}

// Some failures, of reads too, have rolled back already: what comes now would be for good at once.
bool Sqlite_Store::may_change() {
  return !sqlite3_get_autocommit(m_session.handle()) ||
         m_session.fail("write", "the transaction went in a failure before");
}

Db_Result Sqlite_Store::hold() {
  return m_session.run("SAVEPOINT held", "lock") ? Db_Result::OK : Db_Result::FAILED;
}

Db_Result Sqlite_Store::undo_held() {
  for (Sqlite_Cursor* cursor : m_cursors) cursor->keep_rest();
  m_is_bulk = false;
  return m_session.run("ROLLBACK TO held", "undo") ? Db_Result::OK : Db_Result::FAILED;
}

Db_Result Sqlite_Store::savepoint() {
  if (!may_change()) return Db_Result::FAILED;
  return Sqlite_Statement(m_session, Sqlite_Sql::SAVEPOINT).execute("write");
}

Db_Result Sqlite_Store::release() {
  return Sqlite_Statement(m_session, Sqlite_Sql::RELEASE).execute("write");
}

Db_Result Sqlite_Store::rollback_to() {
  for (Sqlite_Cursor* cursor : m_cursors) cursor->keep_rest();
  return m_session.run("ROLLBACK TO part; RELEASE part", "undo") ? Db_Result::OK
                                                                 : Db_Result::FAILED;
}

// The rows on both sides of a place, and what is said of it by the second.
bool Sqlite_Store::look_around(std::string_view from, std::string_view to, Place& place) {
  Sqlite_Statement before(m_session, Sqlite_Sql::ROW_BEFORE), next(m_session, Sqlite_Sql::ROW_FROM);
  if (!before.is_ready() || !next.is_ready()) return false;
  before.bind(1, from);
  next.bind(1, to);
  const Db_Result has_before = before.step("read"), has_next = next.step("read");
  if (has_before == Db_Result::FAILED || has_next == Db_Result::FAILED) return false;
  place.before = Sqlite_PathSum(has_before == Db_Result::OK ? before.text(0) : "").link();
  if (has_next == Db_Result::NOT_FOUND) return damaged("rows are missing behind", from), false;
  place.next = next.text(0);
  place.next_row = next.text(1);
  const Sqlite_Row row(place.next_row);
  if (!row.is_whole(Sqlite_PathSum(place.next))) {
    return damaged("there is damage at", place.next), false;
  }
  place.link = row.link();
  return true;
}

bool Sqlite_Store::link_next(const Place& place, uint32_t link) {
  if (place.link == link) return true;
  const std::string row = Sqlite_Row(place.next_row).linked_to(link);
  Sqlite_Statement statement(m_session, Sqlite_Sql::LINK);
  if (!statement.is_ready()) return false;
  statement.bind(1, place.next);
  statement.bind_bytes(2, row);
  return statement.execute("write") == Db_Result::OK;
}

// A row that is there keeps its link, and the next one the link to it. NOT_FOUND when there is
// none, or none that is whole.
Db_Result Sqlite_Store::replace(const Db_Entry& entry) {
  Sqlite_Statement old(m_session, Sqlite_Sql::GET), put(m_session, Sqlite_Sql::REPLACE);
  if (!old.is_ready() || !put.is_ready()) return Db_Result::FAILED;
  old.bind(1, entry.path);
  const Db_Result result = old.step("read");
  if (result != Db_Result::OK) return result;
  const Sqlite_Row row(old.text(0));
  if (!row.is_whole(Sqlite_PathSum(entry.path))) return Db_Result::NOT_FOUND;
  const std::string stored =
      Sqlite_Row::Sealed(row.link(), entry.path, entry.value, entry.sequence);
  old.rewind();
  put.bind(1, entry.path);
  put.bind_bytes(2, stored);
  put.bind(3, entry.sequence);
  return put.execute("write");
}

Db_Result Sqlite_Store::put(const Db_Entry* entries, size_t count) {
  if (!may_change()) return Db_Result::FAILED;
  Sqlite_Statement put(m_session, Sqlite_Sql::PUT);
  Sqlite_Statement forget(m_session, Sqlite_Sql::FORGET_DELETION);
  if (!put.is_ready() || !forget.is_ready()) return Db_Result::FAILED;
  for (const Db_Entry* entry = entries; entry != entries + count; ++entry) {
    const Db_Result replaced = replace(*entry);
    if (replaced == Db_Result::FAILED) return replaced;
    if (replaced == Db_Result::OK) continue;
    const uint32_t own = Sqlite_PathSum(entry->path).link();
    Place place;
    if (!look_around(entry->path, behind(entry->path), place)) return Db_Result::FAILED;
    if (place.link != own && place.link != place.before) {
      return damaged("rows are missing before", place.next);
    }
    const std::string row =
        Sqlite_Row::Sealed(place.before, entry->path, entry->value, entry->sequence);
    put.bind(1, entry->path);
    put.bind_bytes(2, row);
    put.bind(3, entry->sequence);
    forget.bind(1, entry->path);
    if (put.execute("write") != Db_Result::OK || forget.execute("write") != Db_Result::OK ||
        !link_next(place, own)) {
      return Db_Result::FAILED;
    }
  }
  return Db_Result::OK;
}

// Beside the top others may stand before what is below it (`a`, `a-b`, `a\c`).
Db_Result Sqlite_Store::put_new(const Db_Entry* entries, size_t count) {
  if (!count) return Db_Result::OK;
  if (!may_change()) return Db_Result::FAILED;
  m_is_bulk = true;
  Sqlite_Statement forget(m_session, Sqlite_Sql::FORGET_DELETIONS);
  if (!forget.is_ready() || !put_run(entries, 1)) return Db_Result::FAILED;
  if (count > 1 && !put_run(entries + 1, count - 1)) return Db_Result::FAILED;
  forget.bind(1, entries[0].path);
  forget.bind(2, entries[count - 1].path);
  return forget.execute("write");
}

bool Sqlite_Store::put_run(const Db_Entry* entries, size_t count) {
  Sqlite_Statement put(m_session, Sqlite_Sql::PUT_NEW);
  Place place;
  if (!put.is_ready() || !look_around(entries[0].path, behind(entries[count - 1].path), place)) {
    return false;
  }
  if (place.link != place.before) return damaged("rows are missing before", place.next), false;
  uint32_t link = place.before;
  for (const Db_Entry* entry = entries; entry != entries + count; ++entry) {
    const std::string row = Sqlite_Row::Sealed(link, entry->path, entry->value, entry->sequence);
    put.bind(1, entry->path);
    put.bind_bytes(2, row);
    put.bind(3, entry->sequence);
    if (put.execute("write") != Db_Result::OK) return false;
    link = Sqlite_PathSum(entry->path).link();
  }
  return link_next(place, link);
}

Db_Result Sqlite_Store::erase(const Db_Entry* entries, size_t count) {
  if (!may_change()) return Db_Result::FAILED;
  Sqlite_Statement erase(m_session, Sqlite_Sql::ERASE);
  Sqlite_Statement keep(m_session, Sqlite_Sql::KEEP_DELETION);
  if (!erase.is_ready() || !keep.is_ready()) return Db_Result::FAILED;
  for (const Db_Entry* entry = entries; entry != entries + count; ++entry) {
    Place place;
    if (!look_around(entry->path, behind(entry->path), place)) return Db_Result::FAILED;
    if (place.link != Sqlite_PathSum(entry->path).link() && place.link != place.before) {
      return damaged("rows are missing before", place.next);
    }
    erase.bind(1, entry->path);
    keep.bind(1, entry->path);
    keep.bind(2, entry->sequence);
    if (erase.execute("write") != Db_Result::OK || keep.execute("write") != Db_Result::OK ||
        !link_next(place, place.before)) {
      return Db_Result::FAILED;
    }
  }
  return Db_Result::OK;
}

Db_Result Sqlite_Store::erase_range(std::string_view from, std::string_view to, int64_t sequence,
                                    int64_t& rows) {
  if (!may_change()) return Db_Result::FAILED;
  Sqlite_Statement keep(m_session, Sqlite_Sql::KEEP_DELETIONS);
  Sqlite_Statement erase(m_session, Sqlite_Sql::ERASE_RANGE);
  Place range, end;
  if (!erase.is_ready() || !keep.is_ready() || !look_around(from, to, range) ||
      !look_around(to, to, end)) {
    return Db_Result::FAILED;
  }
  if (end.link != end.before) return damaged("rows are missing before", end.next);
  keep.bind(1, from);
  keep.bind(2, to);
  keep.bind(3, sequence);
  erase.bind(1, from);
  erase.bind(2, to);
  if (keep.execute("write") != Db_Result::OK || erase.execute("write") != Db_Result::OK) {
    return Db_Result::FAILED;
  }
  rows = sqlite3_changes64(m_session.handle());
  return link_next(range, range.before) ? Db_Result::OK : Db_Result::FAILED;
}

Db_Result Sqlite_Store::purge_deletions(int days, int64_t& rows) {
  if (!may_change()) return Db_Result::FAILED;
  int64_t newest = 0;
  {
    Sqlite_Statement statement(m_session, Sqlite_Sql::NEWEST_BEFORE);
    if (!statement.is_ready()) return Db_Result::FAILED;
    statement.bind(1, int64_t{days});
    if (statement.step("read") != Db_Result::OK) return Db_Result::FAILED;
    newest = statement.number(0);
  }
  rows = 0;
  if (!newest) return Db_Result::OK;
  if (execute(Sqlite_Sql::PURGE, newest, "write") != Db_Result::OK) return Db_Result::FAILED;
  rows = sqlite3_changes64(m_session.handle());
  return execute(Sqlite_Sql::SET_OLDEST, newest, "write");
}

// --- the module
// -----------------------------------------------------------------------------------

extern "C" __attribute__((visibility("default"))) Db_Store* halvoria_open_store(
    const char* connection, const char*, std::string& reason) {
  constexpr std::string_view scheme = "sqlite:";
  std::string_view file = connection ? connection : "";
  if (file.substr(0, scheme.size()) == scheme) file.remove_prefix(scheme.size());
  return Sqlite_Store::Open(std::string(file), reason).release();
}
