// Memory that runs out, allocation by allocation.
#pragma once

#include <gtest/gtest.h>

#include <new>
#include <ostream>
#include <utility>

#include <logging/Log_Capture.h>

// One run of a case, in which one allocation of this thread fails, or that one and all after it.
// Only what is run through Under or Try is short of memory; the rest of the case prepares and
// checks at ease.
class MemoryShortage {
 public:
  // The `failing`-th allocation, counted from 1, fails.
  MemoryShortage(int failing, bool for_good) : m_left(failing), m_for_good(for_good) {}

  // For an operation that lets no exception out.
  template <class Operation>
  void Under(Operation&& operation) {
    EXPECT_NO_THROW(at_short(operation));
  }
  // For an operation that may throw std::bad_alloc. TRUE when it did not.
  template <class Operation>
  bool Try(Operation&& operation) try {
    at_short(operation);
    return true;
  } catch (const std::bad_alloc&) {
    return false;
  }

  // Whether an allocation has failed.
  bool HasStruck() const { return m_left <= 0; }
  // Whether the log says that an operation had to give up; always, when not even the log has
  // memory. A failed connection is told by a line of the level of errors.
  bool IsExplained(int level = LOG_LEVEL_SEVERE) const;

 private:
  struct Scope {
    explicit Scope(MemoryShortage* shortage);
    ~Scope();
  };
  template <class Operation>
  void at_short(Operation&& operation) {
    const Scope scope(this);
    std::forward<Operation>(operation)();
  }
  friend struct MemoryShortageAllocator;

  int m_left;
  const bool m_for_good;
  Log_Capture m_log;  // every line is rendered, so that its allocations fail, too
};

// A row: an operation, which is run again and again with another allocation failing until none
// fails any more. Keep what it works on small: the time goes with the square of the
// allocations.
//
// Afterwards nothing may be left of what the run has allocated. What the process keeps on purpose
// (names, caches of a thread) is kept by the first few runs; a leak is what every repetition
// adds to.
struct OutOfMemoryCase {
  const char* name;
  void (*run)(MemoryShortage& memory);
};
inline std::ostream& operator<<(std::ostream& out, const OutOfMemoryCase& row) {
  return out << row.name;
}

// A source with rows ends with
//   INSTANTIATE_TEST_SUITE_P(Subject, OutOfMemory, testing::ValuesIn(rows), OutOfMemory::NameOf);
class OutOfMemory : public testing::TestWithParam<OutOfMemoryCase> {
 public:
  static std::string NameOf(const testing::TestParamInfo<OutOfMemoryCase>& row) {
    return row.param.name;
  }
};
