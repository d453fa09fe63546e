// What an answer takes of the bytes that may wait for clients.
#pragma once

#include <cstdint>

#include "quota.h"

namespace service {

// Counted as the answer is made: the tree that is read from the store, its byte array, and in the
// end the frame that is sent, for as long as the client does not take it. Small answers do not
// count. One thread at a time.
class AnswerRoom {
 public:
  // `found` is what it waited for; empty at first. It waits until then at most, in all.
  AnswerRoom(Quota& quota, Quota::Share found, Quota::Time until);

  // That the answer takes so many bytes more. False when there is no room for them, now and from
  // then on: it is to be given up.
  bool take(int64_t bytes);
  bool is_missing() const { return m_is_missing; }
  // That it is made, and takes no more than that.
  bool settle(int64_t bytes);
  // What the frame keeps while it waits to be taken; empty for a small one.
  Quota::Share release() { return std::move(m_share); }

  // To be asked for, until `until`, for another attempt.
  int64_t wanted() const;
  Quota::Time until() const { return m_until; }

 private:
  Quota& m_quota;
  Quota::Share m_share;
  const Quota::Time m_until;
  int64_t m_taken = 0;
  bool m_is_missing = false;
  bool m_is_made = false;
};

}  // namespace service
