// Reading rows one by one.
#pragma once

#include <set>
#include <string>
#include <vector>

#include <database/sqlite/Sqlite_Session.h>

// A cursor that reads on as it is asked. A transaction of changes cannot begin beside a read of
// an older state, so whoever begins one calls keep_rest of the cursors that are open first.
class Sqlite_Cursor : public Db_Cursor {
 public:
  using Open = std::set<Sqlite_Cursor*>;

  Sqlite_Cursor(Sqlite_Session& session, Sqlite_Sql sql, Open& open)
      : m_statement(session, sql), m_open(open) {
    m_open.insert(this);
  }
  ~Sqlite_Cursor() override { m_open.erase(this); }

  bool is_ready() const { return m_statement.is_ready(); }
  Sqlite_Statement& statement() { return m_statement; }
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
  virtual Db_Result read(Db_Entry& entry);
  Db_Result step() {
    if (!m_is_first) return m_statement.step("read");
    m_is_first = false;
    return m_first;
  }

 private:
  struct Row {
    std::string path, value;
  };

  Sqlite_Statement m_statement;
  Open& m_open;
  bool m_is_first = false;
  Db_Result m_first = Db_Result::NOT_FOUND;
  bool m_is_kept = false;
  Db_Result m_end = Db_Result::NOT_FOUND;  // behind the rows kept
  size_t m_next = 0;
  std::vector<Row> m_rest;
};

// The rows directly under a key. Goes through a few rows of a branch, as stepping is quick, and
// looks for the row behind the branch when it has more.
class Sqlite_ChildCursor : public Sqlite_Cursor {
 public:
  Sqlite_ChildCursor(Sqlite_Session& session, Open& open, std::string_view path);
  ~Sqlite_ChildCursor() override {
    if (m_is_state_held) m_session.leave_state();
  }

 protected:
  Db_Result read(Db_Entry& entry) override;

 private:
  static constexpr int kSteps = 8;

  Db_Result pass_over(std::string_view branch);

  Sqlite_Session& m_session;
  bool m_is_state_held = false;  // once the statement has to begin anew
  size_t m_below;                // where the names begin
  std::string m_from, m_to;
  int m_passed = 0;
};
