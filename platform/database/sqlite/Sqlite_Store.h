// The store in a file.
#pragma once

#include <database/sqlite/Sqlite_Cursor.h>
#include <database/sqlite/Sqlite_ValueCache.h>

// Db_Store over SQLite: a write-ahead log, so that readers and the writer do not wait for each
// other, synced to the disk at every commit. Several processes may use the file at once.
class Sqlite_Store : public Db_Store {
 public:
  // Null with the reason.
  static std::unique_ptr<Sqlite_Store> Open(const std::string& file, std::string& reason);
  ~Sqlite_Store() override;

  const std::string& error() const override { return m_session.error(); }
  void set_trace(Trace trace, void* context) override;

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
  Db_Result hold_state() override { return m_session.hold_state(); }
  void leave_state() override { m_session.leave_state(); }

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

 private:
  Sqlite_Store() = default;
  Db_Result number(Sqlite_Sql sql, int64_t& number);
  Db_Result text(Sqlite_Sql sql, std::string& text);
  Db_Result read(std::string_view path, std::string& value);
  Db_Result execute(Sqlite_Sql sql, int64_t number, const char* what);
  bool may_change();
  bool inspect_from(std::string& from, uint32_t& link, Db_Findings& findings);
  Db_Result damaged(std::string_view what, std::string_view path);

  // Between two rows.
  struct Place {
    uint32_t before = 0;  // the link to the row before
    std::string next, next_row;
    uint32_t link = 0;  // of the next row
  };
  bool look_around(std::string_view from, std::string_view to, Place& place);
  Db_Result replace(const Db_Entry& entry);
  bool put_run(const Db_Entry* entries, size_t count);
  bool link_next(const Place& place, uint32_t link);

  Sqlite_Session m_session;
  Sqlite_ValueCache m_values;
  Sqlite_Cursor::Open m_cursors;
  int64_t m_last_sequence = 0;  // when the transaction began
  bool m_is_bulk = false;       // the transaction wrote in bulk
  Trace m_trace = nullptr;
  void* m_trace_context = nullptr;
};
