// A session with a PostgreSQL server and the statements prepared in it.
#pragma once

#include <libpq-fe.h>

#include <array>
#include <initializer_list>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <database/Db_Store.h>

enum class Pg_Sql {
  GET,
  RANGE,
  RANGE_ABOVE,
  DELETED,
  DELETED_ABOVE,
  CHILDREN,
  COUNT,
  MAX_SEQUENCE,
  LAST_SEQUENCE,
  OLDEST_DELETION,
  SYNC_ID,
  DATE_TIME,
  CHECK,
  CHECK_INDEX,
  PAGES,
  PAGE,
  DATA_CHECKSUMS,
  BEGIN,
  BEGIN_READ,
  LOCK,
  REPLACE,
  LAST_AND_VALUE,
  PUT,
  PUT_MANY,
  COPY_NEW,
  FORGET_DELETIONS,
  ERASE_MANY,
  ERASE_RANGE,
  SET_LAST,
  SET_LAST_BULK,
  COMMIT,
  HOLD,
  SAVEPOINT,
  RELEASE,
  PURGE,
  END
};

struct Pg_Clear {
  void operator()(PGresult* result) const { PQclear(result); }
};
using Pg_Result = std::unique_ptr<PGresult, Pg_Clear>;

std::string_view Pg_Bytes(const PGresult* result, int row, int column);
int64_t Pg_Number(const PGresult* result, int row, int column);
void Pg_Append(std::string& bytes, int64_t number, int count);  // in network order

// The values of a statement, in binary. Texts must outlive it.
class Pg_Values {
 public:
  Pg_Values() = default;
  Pg_Values(std::initializer_list<std::string_view> texts) {
    for (const std::string_view text : texts) add(text);
  }
  Pg_Values& add(std::string_view bytes);
  Pg_Values& add(int64_t number);

  int count() const { return m_count; }
  const char* const* values() const { return m_values.data(); }
  const int* lengths() const { return m_lengths.data(); }
  const int* formats() const { return m_formats.data(); }

 private:
  static constexpr size_t kMost = 4;
  int m_count = 0;
  std::array<const char*, kMost> m_values;
  std::array<int, kMost> m_lengths;
  std::array<int, kMost> m_formats{1, 1, 1, 1};
  std::vector<std::shared_ptr<const std::string>> m_numbers;
};

struct Pg_Call {
  Pg_Sql sql;
  Pg_Values values;
};

class Pg_Cursor;

// Owns the connection. Outside a transaction a lost connection is made anew, once for each call;
// within one it stays lost. Failures leave the reason in `error`: what was tried, on which
// database, and why. One thread at a time.
class Pg_Session {
 public:
  Pg_Session() = default;
  Pg_Session(const Pg_Session&) = delete;
  Pg_Session& operator=(const Pg_Session&) = delete;
  ~Pg_Session() { PQfinish(m_handle); }
  void abandon();  // by the child of a fork

  // `set_up` is called for each new connection and says whether it can be used.
  bool open(const std::string& connection, const std::string& user,
            bool (*set_up)(Pg_Session& session));

  // One statement. Null on failure.
  Pg_Result call(Pg_Sql sql, const Pg_Values& values, const char* what);
  // Several, sent together and answered together: the result of the last. Null on failure.
  Pg_Result call(const std::vector<Pg_Call>& calls, const char* what);
  Pg_Result run(const char* sql, const char* what);
  // Sends a statement whose rows the cursor then takes one by one.
  bool start(Pg_Sql sql, const Pg_Values& values, Pg_Cursor& cursor);
  bool copy_in(const Db_Entry* entries, size_t count);

  std::string name() const;     // of the database, and where it is
  bool fail(const char* what);  // with the reason of the connection
  bool fail(const char* what, const std::string& why);
  const std::string& error() const { return m_error; }
  const std::string& state() const { return m_state; }  // SQLSTATE of the last failure
  PGconn* handle() const { return m_handle; }
  void set_trace(Db_Store::Trace told, void* context) {
    m_trace = told;
    m_trace_context = context;
  }
  void set_in_transaction(bool is) { m_is_in_transaction = is; }
  void give_up() { m_is_stuck = true; }  // the connection: the next call makes another
  bool is_in_transaction() const { return m_is_in_transaction; }
  void keep_rest();  // of what is being read, so that other statements can be sent
  void release(const Pg_Cursor* cursor) {
    if (m_reading == cursor) m_reading = nullptr;
  }

 private:
  bool connect();
  bool is_alive();
  bool is_lost() const { return m_is_stuck || PQstatus(m_handle) != CONNECTION_OK; }
  bool prepare(Pg_Sql sql);
  bool send(Pg_Sql sql, const Pg_Values& values);
  Pg_Result check(PGresult* result, const char* what);
  Pg_Result try_call(const std::vector<Pg_Call>& calls, const char* what);
  void tell(Pg_Sql sql);

  PGconn* m_handle = nullptr;
  std::string m_connection, m_user;
  bool (*m_set_up)(Pg_Session&) = nullptr;
  std::array<bool, static_cast<size_t>(Pg_Sql::END)> m_is_prepared{};
  bool m_is_in_transaction = false;
  bool m_is_stuck = false;
  Pg_Cursor* m_reading = nullptr;  // its rows are still to come on the connection
  std::string m_error, m_state;
  Db_Store::Trace m_trace = nullptr;
  void* m_trace_context = nullptr;
};

// Rows as they come. Before anything else is asked on the connection, the session calls keep_rest.
class Pg_Cursor : public Db_Cursor {
 public:
  explicit Pg_Cursor(Pg_Session& session) : m_session(session) {}
  ~Pg_Cursor() override;
  Db_Result next(Db_Entry& entry) override;
  // Takes the first row, so that a failure shows at once.
  bool start();
  void keep_rest();

 private:
  struct Row {
    std::string path, value;
    int64_t sequence;
  };

  Db_Result read(Db_Entry& entry);

  Pg_Session& m_session;
  Pg_Result m_row;
  bool m_is_first = false, m_is_over = false, m_is_kept = false;
  Db_Result m_end = Db_Result::NOT_FOUND;
  size_t m_next = 0;
  std::vector<Row> m_rest;
};
