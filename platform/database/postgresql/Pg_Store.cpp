#include <database/postgresql/Pg_Store.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include <database/postgresql/Pg_Schema.h>

namespace {

constexpr size_t kRowsOfCall = 5000;  // of one statement that takes many

// An array of one dimension in the server's binary form.
class Pg_Array {
 public:
  Pg_Array(int type, size_t count) {
    Pg_Append(m_bytes, 1, 4);
    Pg_Append(m_bytes, 0, 4);
    Pg_Append(m_bytes, type, 4);
    Pg_Append(m_bytes, static_cast<int64_t>(count), 4);
    Pg_Append(m_bytes, 1, 4);
  }
  void add(std::string_view bytes) {
    Pg_Append(m_bytes, static_cast<int64_t>(bytes.size()), 4);
    m_bytes += bytes;
  }
  void add(int64_t number) {
    Pg_Append(m_bytes, 8, 4);
    Pg_Append(m_bytes, number, 8);
  }
  const std::string& bytes() const { return m_bytes; }

 private:
  std::string m_bytes;
};
constexpr int kBytea = 17, kInt8 = 20;

}  // namespace

std::unique_ptr<Pg_Store> Pg_Store::Open(const std::string& connection, const std::string& user,
                                         std::string& reason) {
  std::unique_ptr<Pg_Store> store(new Pg_Store());
  std::string sums;
  if (!store->m_session.open(connection, user, Pg_PrepareSchema) ||
      store->text(Pg_Sql::DATA_CHECKSUMS, sums) != Db_Result::OK) {
    reason = store->error();
    return nullptr;
  }
  store->m_has_sums = sums == "on";
  return store;
}

std::string Pg_Store::concern() const {
  if (m_has_sums) return {};
  return m_session.name() +
         " keeps no sums of its pages (data_checksums is off): where its disk is damaged, what is "
         "read may be wrong or short, and nobody is told; pg_checksums --enable turns them on";
}

// --- reads
// ----------------------------------------------------------------------------------------

Db_Result Pg_Store::get(std::string_view path, std::string& value) {
  const auto ahead = std::exchange(m_ahead, std::nullopt);
  if (ahead && ahead->path == path) {
    if (ahead->value) value = *ahead->value;
    return ahead->value ? Db_Result::OK : Db_Result::NOT_FOUND;
  }
  const Pg_Result result = ask(Pg_Sql::GET, {path}, "read");
  if (!result) return Db_Result::FAILED;
  if (!PQntuples(result.get())) return Db_Result::NOT_FOUND;
  value.assign(Pg_Bytes(result.get(), 0, 0));
  return Db_Result::OK;
}

std::unique_ptr<Db_Cursor> Pg_Store::read(Pg_Sql sql, const Pg_Values& values) {
  if (carry_out() != Db_Result::OK) return nullptr;
  auto cursor = std::make_unique<Pg_Cursor>(m_session);
  if (!m_session.start(sql, values, *cursor)) return nullptr;
  return cursor;
}

std::unique_ptr<Db_Cursor> Pg_Store::range(std::string_view from, std::string_view to,
                                           int64_t above_sequence, bool deleted) {
  Pg_Values values{from, to};
  if (above_sequence <= 0) return read(deleted ? Pg_Sql::DELETED : Pg_Sql::RANGE, values);
  values.add(above_sequence);
  return read(deleted ? Pg_Sql::DELETED_ABOVE : Pg_Sql::RANGE_ABOVE, values);
}

std::unique_ptr<Db_Cursor> Pg_Store::children(std::string_view path) {
  const std::string from = path.empty() ? std::string() : std::string(path) + "\\";
  const std::string to = path.empty() ? "\xff\xff\xff\xff" : std::string(path) + "]";
  std::string names_from;
  Pg_Append(names_from, static_cast<int64_t>(from.size()) + 1, 4);
  return read(Pg_Sql::CHILDREN, {from, to, names_from});
}

Db_Result Pg_Store::number(Pg_Sql sql, const Pg_Values& values, int64_t& number) {
  const Pg_Result result = ask(sql, values, "read");
  if (!result || !PQntuples(result.get())) return Db_Result::FAILED;
  number = Pg_Number(result.get(), 0, 0);
  return Db_Result::OK;
}

Db_Result Pg_Store::text(Pg_Sql sql, std::string& text) {
  const Pg_Result result = ask(sql, {}, "read");
  if (!result || !PQntuples(result.get())) return Db_Result::FAILED;
  text.assign(Pg_Bytes(result.get(), 0, 0));
  return Db_Result::OK;
}

Db_Result Pg_Store::count(std::string_view from, std::string_view to, int64_t& rows) {
  return number(Pg_Sql::COUNT, {from, to}, rows);
}
Db_Result Pg_Store::max_sequence(std::string_view from, std::string_view to, int64_t& number) {
  return this->number(Pg_Sql::MAX_SEQUENCE, {from, to}, number);
}
Db_Result Pg_Store::last_sequence(int64_t& number) {
  return this->number(Pg_Sql::LAST_SEQUENCE, {}, number);
}
Db_Result Pg_Store::oldest_deletion(int64_t& number) {
  return this->number(Pg_Sql::OLDEST_DELETION, {}, number);
}
Db_Result Pg_Store::sync_id(std::string& id) { return text(Pg_Sql::SYNC_ID, id); }
Db_Result Pg_Store::date_time(std::string& text) { return this->text(Pg_Sql::DATE_TIME, text); }

Db_Result Pg_Store::check(std::string& reason) {
  int64_t wrong = 0, differing = 0;
  if (number(Pg_Sql::CHECK, {}, wrong) != Db_Result::OK ||
      number(Pg_Sql::CHECK_INDEX, {}, differing) != Db_Result::OK) {
    return Db_Result::FAILED;
  }
  reason = differing ? "the rows are not those that their index knows"
           : wrong   ? std::to_string(wrong) + " sequence numbers are out of range or given twice"
                     : "";
  return reason.empty() ? Db_Result::OK : Db_Result::NOT_FOUND;
}

void Pg_Store::inspect(Db_Findings& findings) {
  const auto rows = range("", "\xff\xff\xff\xff", 0, false);
  Db_Result result = rows ? Db_Result::OK : Db_Result::FAILED;
  Db_Entry entry;
  std::string last;
  while (result == Db_Result::OK && (result = rows->next(entry)) == Db_Result::OK) {
    if (entry.path <= last) {
      findings.damage("the order is lost at <" + std::string(entry.path) + ">");
      continue;
    }
    findings.row(entry);
    last = entry.path;
  }
  if (result != Db_Result::FAILED) return;
  findings.damage(error() + ", behind <" + last + ">");
  inspect_pages(last, findings);
}

// Where the rows can't be read in order, page by page: as many pages as are sound.
void Pg_Store::inspect_pages(std::string_view behind, Db_Findings& findings) {
  int64_t pages = 0;
  if (number(Pg_Sql::PAGES, {}, pages) != Db_Result::OK) return findings.damage(error());
  std::vector<Pg_Result> results;
  std::vector<Db_Entry> rows;
  for (int64_t page = 0; page < pages; ++page) {
    Pg_Values values;
    values.add(page);
    Pg_Result result = ask(Pg_Sql::PAGE, values, "read");
    if (!result) findings.damage("page " + std::to_string(page) + " of the rows: " + error());
    if (PQstatus(m_session.handle()) != CONNECTION_OK) break;
    for (int row = 0; row < PQntuples(result.get()); ++row) {
      const std::string_view path = Pg_Bytes(result.get(), row, 0);
      if (path <= behind) continue;
      rows.push_back({path, Pg_Bytes(result.get(), row, 1), Pg_Number(result.get(), row, 2)});
    }
    results.push_back(std::move(result));
  }
  const auto is_before = [](const Db_Entry& a, const Db_Entry& b) { return a.path < b.path; };
  std::sort(rows.begin(), rows.end(), is_before);
  for (const Db_Entry& row : rows) findings.row(row);
}

Db_Result Pg_Store::hold_state() {
  if (!m_state_holders && !m_session.is_in_transaction()) {
    m_waiting.push_back({Pg_Sql::BEGIN_READ});
    m_is_state_held = true;
  }
  ++m_state_holders;
  return Db_Result::OK;
}

void Pg_Store::leave_state() {
  if (--m_state_holders == 0) end_state();
}

// A connection that is lost meanwhile is made anew only now: it would show another state. One that
// keeps the old state, for want of memory, is given up.
void Pg_Store::end_state() {
  if (!std::exchange(m_is_state_held, false)) return;
  if (takes_back_unsent(Pg_Sql::BEGIN_READ, false)) return;
  try {
    m_session.call(Pg_Sql::COMMIT, {}, "read");
  } catch (...) {
  }
  m_session.set_in_transaction(false);
  if (PQtransactionStatus(m_session.handle()) != PQTRANS_IDLE) m_session.give_up();
}

// --- changes
// --------------------------------------------------------------------------------------

namespace {
// Told with each transaction, as the session may be a new one: 0 would be to wait for ever.
std::string wait_text(int milliseconds) { return std::to_string(std::max(milliseconds, 1)); }
}  // namespace

Db_Result Pg_Store::locking_failed() const {
  const bool was_busy = m_session.state() == "55P03";  // lock_not_available
  return was_busy ? Db_Result::BUSY : Db_Result::FAILED;
}

// Done twice when the connection is lost meanwhile, it finds what it did.
Db_Result Pg_Store::replace_value(std::string_view path, std::string_view value,
                                  int wait_milliseconds) {
  end_state();
  const std::string wait = wait_text(wait_milliseconds);
  const Pg_Result row = m_session.call(Pg_Sql::REPLACE, {path, value, wait}, "write");
  if (!row) return locking_failed();
  return PQntuples(row.get()) && !PQgetisnull(row.get(), 0, 0) ? Db_Result::OK
                                                               : Db_Result::NOT_FOUND;
}

Db_Result Pg_Store::begin(int wait_milliseconds, int64_t& last_sequence) {
  end_state();
  const std::string wait = wait_text(wait_milliseconds);
  const Pg_Result row = m_session.call(
      {{Pg_Sql::BEGIN, {}}, {Pg_Sql::LOCK, {wait}}, {Pg_Sql::LAST_AND_VALUE, {m_expected}}},
      "lock");
  m_session.set_in_transaction(row != nullptr);
  m_is_bulk = false;
  if (row && PQntuples(row.get())) {
    m_last_sequence = last_sequence = Pg_Number(row.get(), 0, 0);
    m_ahead = Ahead{m_expected, std::nullopt};
    if (!PQgetisnull(row.get(), 0, 1)) m_ahead->value = Pg_Bytes(row.get(), 0, 1);
    return Db_Result::OK;
  }
  const Db_Result why = row ? Db_Result::FAILED : locking_failed();
  rollback();
  return why;
}

Db_Result Pg_Store::commit(int64_t last_sequence) {
  m_ahead.reset();
  std::vector<Pg_Call> calls;
  if (last_sequence != m_last_sequence) {
    calls.push_back({m_is_bulk ? Pg_Sql::SET_LAST_BULK : Pg_Sql::SET_LAST, {}});
    calls.back().values.add(last_sequence);
  }
  calls.push_back({Pg_Sql::COMMIT, {}});
  const Pg_Result result = ask(calls, "write");
  // A transaction that had failed answers otherwise.
  if (result && std::string_view(PQcmdStatus(result.get())) == "COMMIT") {
    m_session.set_in_transaction(false);
    return Db_Result::OK;
  }
  rollback();
  return Db_Result::FAILED;
}

// The server rolls back what a lost connection leaves.
void Pg_Store::rollback() {
  m_ahead.reset();
  m_waiting.clear();
  m_session.keep_rest();
  m_session.set_in_transaction(false);
  if (PQtransactionStatus(m_session.handle()) == PQTRANS_IDLE) return;
  PQclear(PQexec(m_session.handle(), "ROLLBACK"));
}

Pg_Call Pg_Store::Waiting::call() const {
  Pg_Call call{sql, {}};
  if (sql != Pg_Sql::PUT) return call;
  call.values.add(path).add(value).add(sequence);
  return call;
}

Pg_Result Pg_Store::ask(const std::vector<Pg_Call>& calls, const char* what) {
  const std::vector<Waiting> waiting = std::move(m_waiting);
  m_waiting.clear();
  std::vector<Pg_Call> all;
  all.reserve(waiting.size() + calls.size());
  for (const Waiting& one : waiting) all.push_back(one.call());
  all.insert(all.end(), calls.begin(), calls.end());
  Pg_Result result = m_session.call(all, what);
  if (m_is_state_held) m_session.set_in_transaction(true);
  return result;
}

Pg_Result Pg_Store::ask(Pg_Sql sql, const Pg_Values& values, const char* what) {
  if (m_waiting.empty()) return m_session.call(sql, values, what);
  return ask({{sql, values}}, what);
}

// Before what can only be sent alone.
Db_Result Pg_Store::carry_out() {
  if (m_waiting.empty()) return Db_Result::OK;
  return ask({}, "write") ? Db_Result::OK : Db_Result::FAILED;
}

Db_Result Pg_Store::hold() {
  m_waiting.push_back({Pg_Sql::HOLD});
  return Db_Result::OK;
}

Db_Result Pg_Store::undo_held() {
  m_is_bulk = false;
  if (takes_back_unsent(Pg_Sql::HOLD, true)) return Db_Result::OK;
  m_session.keep_rest();
  return m_session.run("ROLLBACK TO held", "undo") ? Db_Result::OK : Db_Result::FAILED;
}

Db_Result Pg_Store::savepoint() {
  m_waiting.push_back({Pg_Sql::SAVEPOINT});
  return Db_Result::OK;
}

Db_Result Pg_Store::release() {
  m_waiting.push_back({Pg_Sql::RELEASE});
  return Db_Result::OK;
}

// Forgets what waits since a mark, or all of it when the mark was sent. Nothing else was done since
// when the mark itself still waits.
bool Pg_Store::takes_back_unsent(Pg_Sql mark, bool keeps_mark) {
  const auto is_mark = [&](const Waiting& one) { return one.sql == mark; };
  const auto unsent = std::find_if(m_waiting.begin(), m_waiting.end(), is_mark);
  const bool is_unsent = unsent != m_waiting.end();
  m_waiting.erase(is_unsent ? unsent + keeps_mark : m_waiting.begin(), m_waiting.end());
  return is_unsent;
}

Db_Result Pg_Store::rollback_to() {
  if (takes_back_unsent(Pg_Sql::SAVEPOINT, false)) return Db_Result::OK;
  m_session.keep_rest();
  return m_session.run("ROLLBACK TO part; RELEASE part", "undo") ? Db_Result::OK
                                                                 : Db_Result::FAILED;
}

Db_Result Pg_Store::change(Pg_Sql sql, const Pg_Values& values, int64_t* rows) {
  const Pg_Result result = ask(sql, values, "write");
  if (!result) return Db_Result::FAILED;
  if (rows) *rows = std::strtoll(PQcmdTuples(result.get()), nullptr, 10);
  return Db_Result::OK;
}

Db_Result Pg_Store::put(const Db_Entry* entries, size_t count) {
  m_ahead.reset();
  if (count == 1) {
    const auto is_row = [](const Waiting& one) { return one.sql == Pg_Sql::PUT; };
    const bool is_second = std::any_of(m_waiting.begin(), m_waiting.end(), is_row);
    if (is_second && carry_out() != Db_Result::OK) return Db_Result::FAILED;
    m_waiting.push_back(
        {Pg_Sql::PUT, std::string(entries->path), std::string(entries->value), entries->sequence});
    return Db_Result::OK;
  }
  for (size_t at = 0; at < count; at += kRowsOfCall) {
    const size_t rows = std::min(kRowsOfCall, count - at);
    Pg_Array paths(kBytea, rows), texts(kBytea, rows), numbers(kInt8, rows);
    for (const Db_Entry* entry = entries + at; entry != entries + at + rows; ++entry) {
      paths.add(entry->path);
      texts.add(entry->value);
      numbers.add(entry->sequence);
    }
    if (change(Pg_Sql::PUT_MANY, {paths.bytes(), texts.bytes(), numbers.bytes()}) !=
        Db_Result::OK) {
      return Db_Result::FAILED;
    }
  }
  return Db_Result::OK;
}

Db_Result Pg_Store::put_new(const Db_Entry* entries, size_t count) {
  m_ahead.reset();
  if (!count) return Db_Result::OK;
  if (carry_out() != Db_Result::OK) return Db_Result::FAILED;
  m_is_bulk = true;
  if (!m_session.copy_in(entries, count)) return Db_Result::FAILED;
  return change(Pg_Sql::FORGET_DELETIONS, {entries[0].path, entries[count - 1].path});
}

Db_Result Pg_Store::erase(const Db_Entry* entries, size_t count) {
  m_ahead.reset();
  for (size_t at = 0; at < count; at += kRowsOfCall) {
    const size_t rows = std::min(kRowsOfCall, count - at);
    Pg_Array paths(kBytea, rows), numbers(kInt8, rows);
    for (const Db_Entry* entry = entries + at; entry != entries + at + rows; ++entry) {
      paths.add(entry->path);
      numbers.add(entry->sequence);
    }
    if (change(Pg_Sql::ERASE_MANY, {paths.bytes(), numbers.bytes()}) != Db_Result::OK) {
      return Db_Result::FAILED;
    }
  }
  return Db_Result::OK;
}

Db_Result Pg_Store::erase_range(std::string_view from, std::string_view to, int64_t sequence,
                                int64_t& rows) {
  m_ahead.reset();
  Pg_Values values{from, to};
  values.add(sequence);
  return change(Pg_Sql::ERASE_RANGE, values, &rows);
}

Db_Result Pg_Store::purge_deletions(int days, int64_t& rows) {
  Pg_Values values;
  values.add(int64_t{days});
  return change(Pg_Sql::PURGE, values, &rows);
}

// --- the module
// -----------------------------------------------------------------------------------

extern "C" __attribute__((visibility("default"))) Db_Store* halvoria_open_store(
    const char* connection, const char* user, std::string& reason) {
  return Pg_Store::Open(connection ? connection : "", user ? user : "", reason).release();
}
