// The store on a server.
#pragma once

#include <optional>

#include <database/postgresql/Pg_Session.h>

// Db_Store over PostgreSQL, in a schema of its own. Paths and values are bytes there, too
// (bytea), so that any text is kept whatever the encoding of the database.
class Pg_Store : public Db_Store {
 public:
  // Null with the reason.
  static std::unique_ptr<Pg_Store> Open(const std::string& connection, const std::string& user,
                                        std::string& reason);

  const std::string& error() const override { return m_session.error(); }
  void set_trace(Trace trace, void* context) override { m_session.set_trace(trace, context); }

  std::string concern() const override;

  Db_Result get(std::string_view path, std::string& value) override;
  std::unique_ptr<Db_Cursor> range(std::string_view from, std::string_view to,
                                   int64_t above_sequence, bool deleted) override;
  std::unique_ptr<Db_Cursor> children(std::string_view path) override;
  Db_Result count(std::string_view from, std::string_view to, int64_t& rows) override;
  Db_Result max_sequence(std::string_view from, std::string_view to, int64_t& number) override;
  Db_Result last_sequence(int64_t& number) override;
  Db_Result oldest_deletion(int64_t& number) override;
  Db_Result sync_id(std::string& id) override;
  Db_Result date_time(std::string& text) override;
  Db_Result check(std::string& reason) override;
  void inspect(Db_Findings& findings) override;
  Db_Result hold_state() override;
  void leave_state() override;

  Db_Result replace_value(std::string_view path, std::string_view value,
                          int wait_milliseconds) override;
  void expect_get(std::string_view path) override { m_expected = path; }
  Db_Result begin(int wait_milliseconds, int64_t& last_sequence) override;
  Db_Result commit(int64_t last_sequence) override;
  void rollback() override;
  Db_Result put(const Db_Entry* entries, size_t count) override;
  Db_Result put_new(const Db_Entry* entries, size_t count) override;
  Db_Result erase(const Db_Entry* entries, size_t count) override;
  Db_Result erase_range(std::string_view from, std::string_view to, int64_t sequence,
                        int64_t& rows) override;
  Db_Result purge_deletions(int days, int64_t& rows) override;
  Db_Result hold() override;
  Db_Result undo_held() override;
  Db_Result savepoint() override;
  Db_Result release() override;
  Db_Result rollback_to() override;
  void abandon() override { m_session.abandon(); }

 private:
  Pg_Store() = default;
  void inspect_pages(std::string_view behind, Db_Findings& findings);
  std::unique_ptr<Db_Cursor> read(Pg_Sql sql, const Pg_Values& values);
  Db_Result number(Pg_Sql sql, const Pg_Values& values, int64_t& number);
  Db_Result text(Pg_Sql sql, std::string& text);
  Db_Result locking_failed() const;
  Db_Result change(Pg_Sql sql, const Pg_Values& values, int64_t* rows = nullptr);

  // What answers nothing waits for the next statement, with which it is sent: a single row, mostly
  // for the commit or the look at the next row's place, and what is said of the savepoint.
  struct Waiting {
    Pg_Sql sql;
    std::string path = {}, value = {};
    int64_t sequence = 0;
    Pg_Call call() const;
  };
  Pg_Result ask(const std::vector<Pg_Call>& calls, const char* what);
  Pg_Result ask(Pg_Sql sql, const Pg_Values& values, const char* what);
  Db_Result carry_out();
  bool takes_back_unsent(Pg_Sql mark, bool keeps_mark);

  void end_state();

  Pg_Session m_session;
  bool m_has_sums = true;  // of the server's pages
  std::vector<Waiting> m_waiting;
  // A row read as the transaction began, until it is asked for or something is changed.
  struct Ahead {
    std::string path;
    std::optional<std::string> value;
  };
  std::string m_expected;
  std::optional<Ahead> m_ahead;
  int m_state_holders = 0;
  bool m_is_state_held = false;  // by a transaction that reads, begun or still waiting
  int64_t m_last_sequence = 0;   // when the transaction began
  bool m_is_bulk = false;        // the transaction wrote in bulk
};
