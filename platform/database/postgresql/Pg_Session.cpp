#include <database/postgresql/Pg_Session.h>

#include <unistd.h>

#include <cstring>

#include <database/postgresql/Pg_Statements.h>

namespace {
const char* statement(Pg_Sql sql) { return kPgStatements[static_cast<size_t>(sql)].text; }

std::string name_of(Pg_Sql sql) { return "h" + std::to_string(static_cast<int>(sql)); }

// The reason without the line ends of the server's messages.
std::string one_line(const char* text) {
  std::string line(text);
  while (!line.empty() && line.back() == '\n') line.pop_back();
  for (char& c : line) c = c == '\n' ? ' ' : c;
  return line;
}
}  // namespace

std::string_view Pg_Bytes(const PGresult* result, int row, int column) {
  return {PQgetvalue(result, row, column), static_cast<size_t>(PQgetlength(result, row, column))};
}

int64_t Pg_Number(const PGresult* result, int row, int column) {
  uint64_t number = 0;
  for (const char byte : Pg_Bytes(result, row, column)) {
    number = number << 8 | static_cast<unsigned char>(byte);
  }
  return static_cast<int64_t>(number);
}

void Pg_Append(std::string& bytes, int64_t number, int count) {
  for (int byte = count - 1; byte >= 0; --byte) {
    bytes += static_cast<char>(static_cast<uint64_t>(number) >> (8 * byte));
  }
}

Pg_Values& Pg_Values::add(std::string_view bytes) {
  const auto at = static_cast<size_t>(m_count++);
  m_values[at] = bytes.data() ? bytes.data() : "";
  m_lengths[at] = static_cast<int>(bytes.size());
  return *this;
}

Pg_Values& Pg_Values::add(int64_t number) {
  std::string bytes;
  Pg_Append(bytes, number, 8);
  m_numbers.push_back(std::make_shared<const std::string>(std::move(bytes)));
  return add(*m_numbers.back());
}

// --- the connection ---------------------------------------------------------------------------

bool Pg_Session::open(const std::string& connection, const std::string& user,
                      bool (*set_up)(Pg_Session&)) {
  m_connection = connection;
  m_user = user;
  m_set_up = set_up;
  return connect();
}

// What stands in the connection string wins over what stands before it here.
bool Pg_Session::connect() {
  PQfinish(m_handle);
  m_is_prepared.fill(false);
  m_is_in_transaction = m_is_stuck = false;
  const char* const names[] = {"connect_timeout", "application_name",
                               m_user.empty() ? "fallback_application_name" : "user", "dbname",
                               nullptr};
  const char* const values[] = {"10", "halvoria_cfg",
                                m_user.empty() ? "halvoria_cfg" : m_user.c_str(),
                                m_connection.c_str(), nullptr};
  m_handle = PQconnectdbParams(names, values, 1);
  if (is_lost()) return fail("open");
  PQsetNoticeProcessor(
      m_handle, [](void*, const char*) {}, nullptr);
  return m_set_up(*this);
}

// The server learns from the parent's end alone how that goes on.
void Pg_Session::abandon() {
  if (m_handle) ::close(PQsocket(m_handle));
}

bool Pg_Session::is_alive() {
  keep_rest();
  if (!is_lost()) return true;
  if (m_is_in_transaction) return fail("use", "the connection is lost");
  return connect();
}

void Pg_Session::keep_rest() {
  if (m_reading) m_reading->keep_rest();
}

std::string Pg_Session::name() const {
  const char* name = m_handle ? PQdb(m_handle) : nullptr;
  const char* host = m_handle ? PQhost(m_handle) : nullptr;
  const char* port = m_handle ? PQport(m_handle) : nullptr;
  return std::string("database <") + (name ? name : "") + "> at <" + (host ? host : "") + ":" +
         (port ? port : "") + ">";
}

bool Pg_Session::fail(const char* what, const std::string& why) {
  m_state.clear();
  m_error = std::string("cannot ") + what + " " + name() + ": " + why;
  return false;
}

bool Pg_Session::fail(const char* what) {
  return fail(what, m_handle ? one_line(PQerrorMessage(m_handle)) : "no memory");
}

Pg_Result Pg_Session::check(PGresult* result, const char* what) {
  Pg_Result owned(result);
  const ExecStatusType status = PQresultStatus(result);
  if (status == PGRES_COMMAND_OK || status == PGRES_TUPLES_OK || status == PGRES_COPY_IN) {
    return owned;
  }
  const char* why = result ? PQresultErrorMessage(result) : "";
  fail(what, one_line(*why ? why : PQerrorMessage(m_handle)));
  const char* state = result ? PQresultErrorField(result, PG_DIAG_SQLSTATE) : nullptr;
  m_state = state ? state : "";
  return nullptr;
}

void Pg_Session::tell(Pg_Sql sql) {
  if (m_trace) m_trace(m_trace_context, statement(sql));
}

bool Pg_Session::prepare(Pg_Sql sql) {
  bool& is_prepared = m_is_prepared[static_cast<size_t>(sql)];
  if (is_prepared) return true;
  is_prepared = check(PQprepare(m_handle, name_of(sql).c_str(), statement(sql), 0, nullptr),
                      "use") != nullptr;
  return is_prepared;
}

bool Pg_Session::send(Pg_Sql sql, const Pg_Values& values) {
  tell(sql);
  return PQsendQueryPrepared(m_handle, name_of(sql).c_str(), values.count(), values.values(),
                             values.lengths(), values.formats(), 1) == 1;
}

// --- statements -------------------------------------------------------------------------------

Pg_Result Pg_Session::run(const char* sql, const char* what) {
  if (m_trace) m_trace(m_trace_context, sql);
  return check(PQexec(m_handle, sql), what);
}

Pg_Result Pg_Session::call(Pg_Sql sql, const Pg_Values& values, const char* what) {
  for (int attempt = 0;; ++attempt) {
    if (!is_alive()) return nullptr;
    Pg_Result result;
    if (prepare(sql)) {
      tell(sql);
      result = check(PQexecPrepared(m_handle, name_of(sql).c_str(), values.count(), values.values(),
                                    values.lengths(), values.formats(), 1),
                     what);
    }
    if (result || attempt || m_is_in_transaction || !is_lost()) return result;
  }
}

Pg_Result Pg_Session::call(const std::vector<Pg_Call>& calls, const char* what) {
  for (int attempt = 0;; ++attempt) {
    if (!is_alive()) return nullptr;
    Pg_Result result = try_call(calls, what);
    if (result || attempt || m_is_in_transaction || !is_lost()) return result;
  }
}

// The first failure counts: those behind it were not carried out.
Pg_Result Pg_Session::try_call(const std::vector<Pg_Call>& calls, const char* what) {
  for (const Pg_Call& call : calls) {
    if (!prepare(call.sql)) return nullptr;
  }
  if (!PQenterPipelineMode(m_handle)) {
    fail(what);
    return nullptr;
  }
  bool is_sent = true;
  for (const Pg_Call& call : calls) is_sent = is_sent && send(call.sql, call.values);
  is_sent = is_sent && PQpipelineSync(m_handle) == 1;
  if (!is_sent) fail(what);
  Pg_Result last;
  bool is_failed = !is_sent;
  for (size_t i = 0; is_sent && i < calls.size(); ++i) {
    PGresult* result = PQgetResult(m_handle);
    if (is_failed) {
      PQclear(result);
    } else {
      last = check(result, what);
      is_failed = !last;
    }
    while (result && (result = PQgetResult(m_handle))) PQclear(result);
  }
  if (is_sent) PQclear(PQgetResult(m_handle));  // of the end of the pipeline
  // A connection that broke meanwhile stays in this mode, in which nothing else can be asked.
  m_is_stuck = !PQexitPipelineMode(m_handle);
  return is_failed ? nullptr : std::move(last);
}

bool Pg_Session::start(Pg_Sql sql, const Pg_Values& values, Pg_Cursor& cursor) {
  for (int attempt = 0;; ++attempt) {
    if (!is_alive()) return false;
    if (prepare(sql)) {
      if (send(sql, values) && PQsetSingleRowMode(m_handle)) {
        m_reading = &cursor;
        if (cursor.start()) return true;
      } else {
        fail("read");
      }
    }
    if (attempt || m_is_in_transaction || !is_lost()) return false;
  }
}

bool Pg_Session::copy_in(const Db_Entry* entries, size_t count) {
  constexpr size_t kPiece = 64 << 10;
  if (!is_alive() || !run(statement(Pg_Sql::COPY_NEW), "write")) return false;
  std::string bytes("PGCOPY\n\377\r\n\0\0\0\0\0\0\0\0\0", 19);
  bytes.reserve(2 * kPiece);
  bool is_sent = true;
  const auto add = [&bytes](std::string_view field) {
    Pg_Append(bytes, static_cast<int64_t>(field.size()), 4);
    bytes += field;
  };
  for (const Db_Entry* entry = entries; is_sent && entry != entries + count; ++entry) {
    Pg_Append(bytes, 4, 2);
    add(entry->path);
    add(entry->value);
    Pg_Append(bytes, 8, 4);
    Pg_Append(bytes, entry->sequence, 8);
    bytes.append("\0\0\0\1\0", 5);
    if (bytes.size() < kPiece) continue;
    is_sent = PQputCopyData(m_handle, bytes.data(), static_cast<int>(bytes.size())) == 1;
    bytes.clear();
  }
  Pg_Append(bytes, -1, 2);
  is_sent = is_sent && PQputCopyData(m_handle, bytes.data(), static_cast<int>(bytes.size())) == 1 &&
            PQputCopyEnd(m_handle, nullptr) == 1;
  if (!is_sent) fail("write");
  bool is_done = is_sent;
  while (PGresult* result = PQgetResult(m_handle)) is_done = check(result, "write") && is_done;
  return is_done;
}

// --- rows one by one --------------------------------------------------------------------------

Pg_Cursor::~Pg_Cursor() {
  Db_Entry entry;
  while (!m_is_kept && !m_is_over && read(entry) == Db_Result::OK) {
  }
  m_session.release(this);
}

bool Pg_Cursor::start() {
  m_is_over = false;
  Db_Entry entry;
  m_end = read(entry);
  m_is_first = m_end == Db_Result::OK;
  return m_end != Db_Result::FAILED;
}

Db_Result Pg_Cursor::read(Db_Entry& entry) {
  if (m_is_over) return m_end;
  m_row.reset(PQgetResult(m_session.handle()));
  if (PQresultStatus(m_row.get()) == PGRES_SINGLE_TUPLE) {
    entry = {Pg_Bytes(m_row.get(), 0, 0), Pg_Bytes(m_row.get(), 0, 1),
             Pg_Number(m_row.get(), 0, 2)};
    return Db_Result::OK;
  }
  const bool is_whole = PQresultStatus(m_row.get()) == PGRES_TUPLES_OK;
  if (!is_whole) m_session.fail("read");
  m_end = is_whole ? Db_Result::NOT_FOUND : Db_Result::FAILED;
  m_is_over = true;
  while (m_row) m_row.reset(PQgetResult(m_session.handle()));
  m_session.release(this);
  return m_end;
}

Db_Result Pg_Cursor::next(Db_Entry& entry) {
  if (m_is_kept) {
    if (m_next == m_rest.size()) return m_end;
    const Row& row = m_rest[m_next++];
    entry = {row.path, row.value, row.sequence};
    return Db_Result::OK;
  }
  if (!m_is_first) return read(entry);
  m_is_first = false;
  entry = {Pg_Bytes(m_row.get(), 0, 0), Pg_Bytes(m_row.get(), 0, 1), Pg_Number(m_row.get(), 0, 2)};
  return Db_Result::OK;
}

void Pg_Cursor::keep_rest() {
  Db_Entry entry;
  while (next(entry) == Db_Result::OK) {
    m_rest.push_back({std::string(entry.path), std::string(entry.value), entry.sequence});
  }
  m_is_kept = true;
  m_session.release(this);
}
