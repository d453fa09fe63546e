#include "answer_room.h"

#include <algorithm>

namespace service {

namespace {

// An answer of more than that counts as long as it waits to be taken.
constexpr int64_t SMALL_ANSWER = int64_t{64} << 10;
// Of an answer that was given up, nobody knows how large it would have been.
constexpr int64_t GUESS = 2;

}  // namespace

AnswerRoom::AnswerRoom(Quota& quota, Quota::Share found, Quota::Time until)
    : m_quota(quota), m_share(std::move(found)), m_until(until) {}

bool AnswerRoom::take(int64_t bytes) {
  m_taken += bytes;
  if (m_is_missing) return false;
  const int64_t lacks = m_taken - m_share.amount();
  if (lacks <= 0 || m_taken <= SMALL_ANSWER) return true;
  if (m_share) {
    m_is_missing = !m_share.grow(lacks) && !m_share.is_all();
  } else {
    m_share = m_quota.take(lacks);
    m_is_missing = !m_share;
  }
  if (m_is_missing) m_share.give_back();
  return !m_is_missing;
}

bool AnswerRoom::settle(int64_t bytes) {
  m_is_made = true;
  m_taken = 0;
  if (bytes <= SMALL_ANSWER) m_share.give_back();
  if (!take(bytes)) return false;
  m_share.shrink(bytes);
  return true;
}

int64_t AnswerRoom::wanted() const { return m_is_made ? m_taken : GUESS * m_taken; }

}  // namespace service
