// So much of something for everybody, given out in shares.
#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <utility>

#include <thread/Mutex.h>

#include "once.h"

namespace service {

// The one turn to write, the places for streams, the bytes that may wait to be sent: given out in
// the order of asking. Nobody waits in it: who has to wait is called back. Any thread; a callback
// runs on the thread that gave a share back, or looked for the late ones, and with no lock held.
class Quota {
 public:
  using Time = std::chrono::steady_clock::time_point;

  // A part of it, which goes back at its end. The quota outlives it.
  class Share {
   public:
    Share() = default;
    Share(Share&& other) noexcept
        : m_quota(std::exchange(other.m_quota, nullptr)), m_amount(other.m_amount) {}
    Share& operator=(Share&& other) noexcept {
      std::swap(m_quota, other.m_quota);
      std::swap(m_amount, other.m_amount);
      other.give_back();
      return *this;
    }
    ~Share() { give_back(); }
    explicit operator bool() const { return m_quota != nullptr; }
    int64_t amount() const { return m_quota ? m_amount : 0; }
    bool is_all() const { return m_quota && m_amount == m_quota->m_whole; }
    // So much more at once, though others wait; false when there is not so much left.
    bool grow(int64_t more);
    // Gives back what is beyond the amount.
    void shrink(int64_t amount);
    void give_back() noexcept {
      if (Quota* const quota = std::exchange(m_quota, nullptr)) quota->take_back(m_amount);
    }

   private:
    friend class Quota;
    Share(Quota& quota, int64_t amount) : m_quota(&quota), m_amount(amount) {}
    Quota* m_quota = nullptr;
    int64_t m_amount = 0;
  };
  // Gets what was asked for, or an empty share when the time was over first.
  using Called = Once<Share>;

  explicit Quota(int64_t whole) : m_whole(whole), m_left(whole) {}
  Quota(const Quota&) = delete;
  Quota& operator=(const Quota&) = delete;

  // Who asks for more than there is gets all of it.
  void ask(int64_t amount, Time until, Called called);
  // At once; an empty share when there is not so much left, or others wait for it.
  Share take(int64_t amount);
  bool is_awaited();
  // Counts up with every share that comes back.
  uint64_t returned();
  // Calls those back whose time is over.
  void refuse_late(Time now);

 private:
  struct Waiting {
    int64_t amount;
    Time until;
    Called called;
  };
  void take_back(int64_t amount) noexcept;
  bool next(Waiting& next);

  const int64_t m_whole;
  Mutex m_mutex;
  int64_t m_left THREADAPI_GUARDED_BY(m_mutex);
  uint64_t m_returned THREADAPI_GUARDED_BY(m_mutex) = 0;
  std::deque<Waiting> m_waiting THREADAPI_GUARDED_BY(m_mutex);
};

}  // namespace service
