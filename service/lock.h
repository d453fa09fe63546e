// The lock in the hands of a client.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include <thread/Mutex.h>

#include "quota.h"
#include "stores.h"

namespace service {

// The turn to write, and a connection to the store, over which nobody else sees what is not
// committed. It belongs to its session until that unlocks or ends; the housekeeper takes it away
// from who holds it for too long, though never from under a request. Then it stays with the
// session, empty, until the client has been told.
//
// Any thread; the store is for the request that uses it.
class Lock {
 public:
  using Clock = std::chrono::steady_clock;

  // Given back whole: first what is not committed is undone, then the next may write.
  struct Held {
    Quota::Share turn;
    Stores::Lease store;
  };
  using GiveBack = std::function<void(Held)>;  // on a thread that may wait for the store

  struct Limits {
    std::chrono::seconds silent;  // without a request
    std::chrono::seconds held;
    std::chrono::seconds held_extended;
  };

  // A request that uses it. Others find it in use as long as this lasts.
  class Use {
   public:
    Use() = default;
    explicit Use(std::shared_ptr<Lock> lock) : m_lock(std::move(lock)) {}
    Use(Use&&) noexcept = default;
    Use& operator=(Use&& other) noexcept {
      m_lock.swap(other.m_lock);
      other.end();
      return *this;
    }
    ~Use() { end(); }
    explicit operator bool() const { return m_lock != nullptr; }
    StoreRepository& store() const { return *m_lock->m_held->store; }
    // Ends the lock.
    Held release();
    // Whether it should end soon: the lock has been held for too long.
    bool is_overdue() const;
    void end() noexcept;

   private:
    std::shared_ptr<Lock> m_lock;
  };

  // `holder` is for messages; `give_back` is called once, by whichever thread ends it.
  Lock(std::string holder, Held held, bool is_extended, GiveBack give_back);
  Lock(const Lock&) = delete;
  Lock& operator=(const Lock&) = delete;
  ~Lock() { give_back(std::move(m_held)); }

  // Of the session's next request. Empty when the lock was lost.
  static Use use(const std::shared_ptr<Lock>& lock);
  std::string lost();  // as the client is told
  void set_extended(bool is_extended);

  // Takes it away when its time is over. True when that is to be told: it has just been lost, or
  // the request that uses it now is the last one.
  bool check_time(Clock::time_point now, const Limits& limits, std::string& reason);
  // Empties it, from within or without a request; nothing when it is empty.
  void take_away(const std::string& reason);
  // Whether a request that is beyond the lock's time still uses it.
  bool is_kept_busy();

  // "user 'mia', ... since 2026-01-31 12:00:00"; empty when it was lost.
  std::string holder();

 private:
  void end_use() noexcept;
  void give_back(std::optional<Held> held) noexcept;

  const std::string m_holder;
  const Clock::time_point m_since = Clock::now();
  const GiveBack m_give_back;

  Mutex m_mutex;
  // Null once it was lost. Changed with the mutex held, by nobody but the user while it is in use.
  std::optional<Held> m_held;
  std::string m_lost THREADAPI_GUARDED_BY(m_mutex);  // why it was, or will be at the use's end
  bool m_is_in_use THREADAPI_GUARDED_BY(m_mutex) = false;
  bool m_is_extended THREADAPI_GUARDED_BY(m_mutex);
  Clock::time_point m_last_used THREADAPI_GUARDED_BY(m_mutex) = m_since;
};

}  // namespace service
