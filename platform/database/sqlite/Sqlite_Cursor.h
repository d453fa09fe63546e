// Reading rows one by one.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <database/sqlite/Sqlite_Row.h>
#include <database/sqlite/Sqlite_Session.h>

// A cursor that reads on as it is asked. A transaction of changes cannot begin beside a read of
// an older state, so whoever begins one calls keep_rest of the cursors that are open first.
class Sqlite_Cursor : public Db_Cursor {
 public:
  using Open = std::set<Sqlite_Cursor*>;

  Sqlite_Cursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open)
      : m_session(session), m_statement(session, sql), m_open(open) {
    m_open.insert(this);
  }
  ~Sqlite_Cursor() override { m_open.erase(this); }

  bool is_ready() const { return m_statement.is_ready(); }
  // Reads the first row, and from then on the state of the store as it is now. False on failure.
  bool start() {
    m_first = m_statement.step("read");
    m_is_first = true;
    return m_first != Db_Result::FAILED;
  }
  Db_Result next(Db_Entry& entry) override;
  // Reads the rest into memory and lets go of the state of the store.
  void keep_rest();

 protected:
  virtual Db_Result read(Db_Entry& entry) = 0;
  Db_Result step() {
    if (!m_is_first) return m_statement.step("read");
    m_is_first = false;
    return m_first;
  }
  Db_Result damaged(std::string_view what, std::string_view path);
  Sqlite_Session& session() { return m_session; }
  Sqlite_Statement& statement() { return m_statement; }

 private:
  struct Row {
    std::string path, value;
    int64_t sequence;
  };

  Sqlite_Session& m_session;
  Sqlite_Statement m_statement;
  Open& m_open;
  bool m_is_first = false;
  Db_Result m_first = Db_Result::NOT_FOUND;
  bool m_is_kept = false;
  Db_Result m_end = Db_Result::NOT_FOUND;  // behind the rows kept
  size_t m_next = 0;
  std::vector<Row> m_rest;
};

// The rows of a range, each of which follows on the one before: from the row before the range to
// the one behind it, so that none is passed over.
class Sqlite_RangeCursor : public Sqlite_Cursor {
 public:
  // With RANGE_NUMBERS the rows have their numbers; those up to one given are passed over.
  Sqlite_RangeCursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open, std::string_view from,
                     std::string_view to, int64_t above_sequence = 0);

 protected:
  Db_Result read(Db_Entry& entry) override;
  void begin_at(std::string from);

 private:
  Db_Result read_next(Db_Entry& entry);

  const bool m_has_numbers;
  const int64_t m_above_sequence;
  std::string m_from, m_to;
  bool m_is_before = true;  // the row before the range comes first, if there is one
  bool m_is_over = false;
  uint32_t m_link = 0;  // of the row to come
};

// The rows directly under a key. Goes through a few rows of a branch, as stepping is quick, and
// looks for the row behind the branch when it has more.
class Sqlite_ChildCursor : public Sqlite_RangeCursor {
 public:
  Sqlite_ChildCursor(Sqlite_Session& session, Open& open, std::string_view path);
  ~Sqlite_ChildCursor() override {
    if (m_is_state_held) session().leave_state();
  }

 protected:
  Db_Result read(Db_Entry& entry) override;

 private:
  static constexpr int kSteps = 8;

  Db_Result pass_over(std::string_view branch);

  bool m_is_state_held = false;  // once the statement has to begin anew
  size_t m_below;                // where the names begin
  int m_passed = 0;
};

// Rows with their numbers, by an index or of deleted ones: each by itself is what was written.
class Sqlite_NumberCursor : public Sqlite_Cursor {
 public:
  Sqlite_NumberCursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open, std::string_view from,
                      std::string_view to, int64_t above_sequence);

 protected:
  Db_Result read(Db_Entry& entry) override;

 private:
  const std::string m_from, m_to;
};
