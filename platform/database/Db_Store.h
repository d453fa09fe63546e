// What CFGDB_Conn needs of a database.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

enum class Db_Result { OK, NOT_FOUND, BUSY, FAILED };

// A row: a key when the value is empty. Paths and values are bytes of any kind. Views into the
// memory of whoever made it.
struct Db_Entry {
  std::string_view path;
  std::string_view value;
  int64_t sequence = 0;  // for what is written; a cursor need not tell it
};

// Rows in order of path, as they were when the cursor was made. It goes before the store does.
class Db_Cursor {
 public:
  virtual ~Db_Cursor() = default;
  // OK with a row whose views hold until the next call, NOT_FOUND at the end, or FAILED.
  virtual Db_Result next(Db_Entry& entry) = 0;
};

// Told what a look at everything finds, in order of path.
class Db_Findings {
 public:
  virtual ~Db_Findings() = default;
  virtual void row(const Db_Entry& entry) = 0;       // that is as it was written
  virtual void damage(const std::string& what) = 0;  // with the place
};

// One session with a database that keeps a table of paths, in the order of their bytes, a table
// of deleted paths, and the last number given. It knows rows and ranges, no rules. Made by a
// module that depends on the database's client library and on nothing else of ours, so no type
// of ours but these crosses its border, and nothing throws except for want of memory. One
// thread at a time.
//
// A range holds the rows with from <= path < to.
class Db_Store {
 public:
  using Trace = void (*)(void* context, const char* statement);

  virtual ~Db_Store() = default;
  virtual const std::string& error() const = 0;            // why the last operation failed
  virtual void set_trace(Trace trace, void* context) = 0;  // told of every statement
  virtual std::string concern() const { return {}; }  // why damage may pass unseen; mostly empty

  // --- reads: each sees one state of the store, between changes its own ------------------------

  virtual Db_Result get(std::string_view path, std::string& value) = 0;
  // Rows of the range with a number above the given one; of the deleted ones too, whose values
  // are empty. Null when it fails, as below.
  virtual std::unique_ptr<Db_Cursor> range(std::string_view from, std::string_view to,
                                           int64_t above_sequence, bool deleted) = 0;
  // The rows directly under a key, their own branches passed over; the rows without a backslash
  // for the empty path.
  virtual std::unique_ptr<Db_Cursor> children(std::string_view path) = 0;
  virtual Db_Result count(std::string_view from, std::string_view to, int64_t& rows) = 0;
  // Of rows and deleted rows of the range; 0 when there is none.
  virtual Db_Result max_sequence(std::string_view from, std::string_view to, int64_t& number) = 0;
  virtual Db_Result last_sequence(int64_t& number) = 0;
  virtual Db_Result oldest_deletion(int64_t& number) = 0;  // from which on all are kept
  virtual Db_Result sync_id(std::string& id) = 0;
  virtual Db_Result date_time(std::string& text) = 0;  // UTC, "2026-11-23 04:45:10"
  virtual Db_Result check(std::string& reason) = 0;    // NOT_FOUND with what is wrong
  // Goes through all rows, on behind damage where that can be.
  virtual void inspect(Db_Findings& findings) = 0;

  // Until leave_state, as often as this is called, all reads see the state that the first of them
  // does; a transaction of changes sees its own, and ends this.
  virtual Db_Result hold_state() = 0;
  virtual void leave_state() = 0;

  // --- changes, between begin and commit or rollback -------------------------------------------

  // A transaction of its own, where the store has a quicker way for it: puts a value in the place
  // of another. NOT_FOUND where nothing is done, as no value is there, or the same, or the write
  // lock is not free.
  virtual Db_Result replace_value(std::string_view path, std::string_view value,
                                  int wait_milliseconds) {
    static_cast<void>(path), static_cast<void>(value), static_cast<void>(wait_milliseconds);
    return Db_Result::NOT_FOUND;
  }
  // What the transaction that begins next reads first, most likely: it may be read with it.
  virtual void expect_get(std::string_view) {}
  // Takes the store's one write lock, waiting at most so long (BUSY), and reads the last number.
  virtual Db_Result begin(int wait_milliseconds, int64_t& last_sequence) = 0;
  // A failed commit has rolled back.
  virtual Db_Result commit(int64_t last_sequence) = 0;
  virtual void rollback() = 0;
  // Puts rows in place of what is at their paths, and forgets deletions of those.
  virtual Db_Result put(const Db_Entry* entries, size_t count) = 0;
  // The same of a tree, in order of path, where no row is at or below its top, the first.
  virtual Db_Result put_new(const Db_Entry* entries, size_t count) = 0;
  // Turns rows into deleted ones with these numbers.
  virtual Db_Result erase(const Db_Entry* entries, size_t count) = 0;
  // All of a range, in order of path, the first with the number given. How many there were.
  virtual Db_Result erase_range(std::string_view from, std::string_view to, int64_t sequence,
                                int64_t& rows) = 0;
  virtual Db_Result purge_deletions(int days, int64_t& rows) = 0;
  // What is done from here on can be undone, as often as wanted, without the write lock going.
  virtual Db_Result hold() = 0;
  virtual Db_Result undo_held() = 0;

  // Of the child of a fork: the session is its parent's. Closes what the child has of it without
  // telling the other side; after that the store is left as it is for good.
  virtual void abandon() {}

  // --- a part of a transaction -----------------------------------------------------------------

  // Marks where changes can go back to without the transaction, one place at a time. Going back
  // forgets the place, and fails where the transaction itself is gone.
  virtual Db_Result savepoint() = 0;
  virtual Db_Result release() = 0;
  virtual Db_Result rollback_to() = 0;
};

// An answer that takes several reads. False when the store failed.
class Db_OneState {
 public:
  explicit Db_OneState(Db_Store& store)
      : m_store(store), m_is_held(store.hold_state() == Db_Result::OK) {}
  Db_OneState(const Db_OneState&) = delete;
  Db_OneState& operator=(const Db_OneState&) = delete;
  ~Db_OneState() {
    if (m_is_held) m_store.leave_state();
  }
  explicit operator bool() const { return m_is_held; }

 private:
  Db_Store& m_store;
  const bool m_is_held;
};

// What a module exports under the name below. On failure null, and the reason.
using Db_OpenStore = Db_Store* (*)(const char* connection, const char* user, std::string& reason);
#define DB_OPEN_STORE "halvoria_open_store"
