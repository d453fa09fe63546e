// For the sources of CFGDB_Conn.
#pragma once

#include <exception>

#include <database/CFGDB_Conn.h>
#include <database/Db_Store.h>

// One operation on the store. False when there is no store; that is logged.
class CFGDB_Conn::Use {
 public:
  Use(CFGDB_Conn& conn, const char* op, std::string_view path = std::string_view())
      : m_conn(conn), m_op(op), m_path(path), m_guard(conn.m_use_mutex) {
    m_is_usable = conn.is_usable(op, path);
  }

  explicit operator bool() const { return m_is_usable; }
  // Whether the store failed, which is logged.
  bool failed(Db_Result result) const {
    if (result != Db_Result::FAILED) return false;
    return !m_conn.reject(m_op, m_path, m_conn.m_store->error());
  }
  // Of a read of many rows, which counts them: whether to fail now.
  bool gives_up(uint32_t rows) const {
    constexpr uint32_t kRowsBetween = 1024;
    return rows % kRowsBetween == 0 && m_conn.gives_up(*this);
  }
  const char* op() const { return m_op; }
  std::string_view path() const { return m_path; }

 protected:
  CFGDB_Conn& conn() const { return m_conn; }

 private:
  CFGDB_Conn& m_conn;
  const char* m_op;
  std::string_view m_path;
  std::lock_guard<std::recursive_mutex> m_guard;
  bool m_is_usable;
};

// One that reads several times, and one state. False when the store failed, too.
class CFGDB_Conn::Reads : public CFGDB_Conn::Use {
 public:
  Reads(CFGDB_Conn& conn, const char* op, std::string_view path = std::string_view())
      : Use(conn, op, path) {
    if (Use::operator bool()) m_state.emplace(*conn.m_store);
    if (m_state && !*m_state) failed(Db_Result::FAILED);
  }

  explicit operator bool() const { return m_state && *m_state; }

 private:
  std::optional<Db_OneState> m_state;
};

// One that changes the store. What an exception interrupts is undone, as when the store fails.
class CFGDB_Conn::Change : public CFGDB_Conn::Use {
 public:
  Change(CFGDB_Conn& conn, const char* op, std::string_view path = std::string_view())
      : Use(conn, op, path) {
    conn.m_refusal.clear();
  }
  ~Change() {
    if (std::uncaught_exceptions() > m_exceptions || conn().m_savepoint) conn().undo();
  }

  // What comes now takes several statements: unless it comes to its end, it is undone without the
  // rest of the transaction. False when the store failed.
  bool set_savepoint() const {
    if (conn().m_auto_commit) return true;
    if (conn().m_store->savepoint() != Db_Result::OK) return false;
    conn().m_savepoint = Savepoint{conn().m_sequence, conn().m_is_changed};
    return true;
  }

 private:
  const int m_exceptions = std::uncaught_exceptions();
};
