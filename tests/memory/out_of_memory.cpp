#include "out_of_memory.h"

#include <algorithm>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

thread_local MemoryShortage* shortage = nullptr;  // of this thread, while an operation runs
thread_local bool is_counted = false;             // this thread is in a run
std::atomic<long> live{0};  // blocks that runs have allocated and nobody has freed

// Stands right before each block.
struct alignas(std::max_align_t) Head {
  bool is_counted;
};

size_t room_for_head(std::align_val_t align) {
  return std::max(sizeof(Head), static_cast<size_t>(align));
}

}  // namespace

struct MemoryShortageAllocator {
  // A good place for a breakpoint.
  __attribute__((noinline)) static bool strikes() {
    MemoryShortage& memory = *shortage;
    if (memory.m_left > 0) return --memory.m_left == 0;
    return memory.m_for_good;
  }

  static void* allocate(size_t bytes, std::align_val_t align) {
    if (shortage && strikes()) return nullptr;
    const size_t head = room_for_head(align);
    const size_t whole = (head + bytes + head - 1) / head * head;
    auto* const memory = static_cast<char*>(std::aligned_alloc(head, whole));
    if (!memory) return nullptr;
    new (memory + head - sizeof(Head)) Head{is_counted};
    if (is_counted) live.fetch_add(1, std::memory_order_relaxed);
    return memory + head;
  }

  static void* allocate_or_throw(size_t bytes, std::align_val_t align) {
    void* const block = allocate(bytes, align);
    return block ? block : throw std::bad_alloc();
  }

  static void release(void* block, std::align_val_t align) {
    if (!block) return;
    char* const begin = static_cast<char*>(block);
    const bool was_counted = reinterpret_cast<Head*>(begin - sizeof(Head))->is_counted;
    if (was_counted) live.fetch_sub(1, std::memory_order_relaxed);
    std::free(begin - room_for_head(align));
  }
};

using Allocator = MemoryShortageAllocator;
constexpr auto kUsual = static_cast<std::align_val_t>(alignof(std::max_align_t));

void* operator new(size_t n) { return Allocator::allocate_or_throw(n, kUsual); }
void* operator new[](size_t n) { return Allocator::allocate_or_throw(n, kUsual); }
void* operator new(size_t n, std::align_val_t a) { return Allocator::allocate_or_throw(n, a); }
void* operator new[](size_t n, std::align_val_t a) { return Allocator::allocate_or_throw(n, a); }
void* operator new(size_t n, const std::nothrow_t&) noexcept {
  return Allocator::allocate(n, kUsual);
}
void* operator new[](size_t n, const std::nothrow_t&) noexcept {
  return Allocator::allocate(n, kUsual);
}
void* operator new(size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Allocator::allocate(n, a);
}
void* operator new[](size_t n, std::align_val_t a, const std::nothrow_t&) noexcept {
  return Allocator::allocate(n, a);
}
void operator delete(void* p) noexcept { Allocator::release(p, kUsual); }
void operator delete[](void* p) noexcept { Allocator::release(p, kUsual); }
void operator delete(void* p, size_t) noexcept { Allocator::release(p, kUsual); }
void operator delete[](void* p, size_t) noexcept { Allocator::release(p, kUsual); }
void operator delete(void* p, const std::nothrow_t&) noexcept { Allocator::release(p, kUsual); }
void operator delete[](void* p, const std::nothrow_t&) noexcept { Allocator::release(p, kUsual); }
void operator delete(void* p, std::align_val_t a) noexcept { Allocator::release(p, a); }
void operator delete[](void* p, std::align_val_t a) noexcept { Allocator::release(p, a); }
void operator delete(void* p, size_t, std::align_val_t a) noexcept { Allocator::release(p, a); }
void operator delete[](void* p, size_t, std::align_val_t a) noexcept { Allocator::release(p, a); }
void operator delete(void* p, std::align_val_t a, const std::nothrow_t&) noexcept {
  Allocator::release(p, a);
}
void operator delete[](void* p, std::align_val_t a, const std::nothrow_t&) noexcept {
  Allocator::release(p, a);
}

MemoryShortage::Scope::Scope(MemoryShortage* memory) { shortage = memory; }
MemoryShortage::Scope::~Scope() { shortage = nullptr; }

bool MemoryShortage::IsExplained(int level) const {
  const std::vector<Log_Capture::Line> lines = m_log.lines();
  const auto tells = [=](const Log_Capture::Line& line) {
    return line.level >= LOG_LEVEL_SEVERE && line.level <= level;
  };
  return m_for_good || std::any_of(lines.begin(), lines.end(), tells);
}

// Whether the run came to its end without a failure, and how many blocks it left behind.
static std::pair<bool, long> once(const OutOfMemoryCase& row, int failing, bool for_good) {
  const long before = live;
  is_counted = true;
  bool has_struck;
  {
    MemoryShortage memory(failing, for_good);
    row.run(memory);
    has_struck = memory.HasStruck();
  }
  is_counted = false;
  return {has_struck, live - before};
}

TEST_P(OutOfMemory, NothingIsLostOrLeaked) {
  constexpr int kRepetitions = 6, kEndless = 100000;
  TmrGLog.SetLevel(0);
  for (const bool for_good : {false, true}) {
    bool has_struck = true;
    for (int failing = 1; has_struck && failing < kEndless; ++failing) {
      SCOPED_TRACE(testing::Message() << "allocation " << failing << " fails"
                                      << (for_good ? ", and all after it" : ""));
      long left = 1;
      for (int repetition = 0; left > 0 && repetition < kRepetitions; ++repetition) {
        std::tie(has_struck, left) = once(GetParam(), failing, for_good);
      }
      EXPECT_LE(left, 0) << "blocks are left behind";
      if (HasFailure()) return;
    }
    EXPECT_FALSE(has_struck) << "the case does not come to an end";
  }
}
