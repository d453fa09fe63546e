// A shared pointer whose count lives inside the object it points to.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

template <class T>
class ThreadAPI_AutoPtrThreadSafe;

// The control block that an object shared through ThreadAPI_AutoPtrThreadSafe
// inherits: a reference count, changed atomically, and an owning flag. When the
// count drops to zero and the flag is set, the object is destroyed; with the flag
// clear somebody else owns it. Copying an object does not copy its count.
class ThreadAPI_Counted {
 protected:
  ThreadAPI_Counted() = default;
  ThreadAPI_Counted(const ThreadAPI_Counted&) {}
  ThreadAPI_Counted& operator=(const ThreadAPI_Counted&) { return *this; }
  ~ThreadAPI_Counted() = default;

  // TRUE for the holder of the only reference to an owned object: nobody else can use it.
  bool is_sole() const {
    return m_count.load(std::memory_order_acquire) == 1 &&
           m_owning.load(std::memory_order_relaxed) != 0;
  }
  void count_up() { m_count.fetch_add(1, std::memory_order_relaxed); }

  // TRUE when this was the last reference to an owned object: the caller destroys it.
  // A sole holder needs no atomic exchange, since nobody else can copy its pointer.
  bool count_down() {
    if (m_count.load(std::memory_order_acquire) != 1 &&
        m_count.fetch_sub(1, std::memory_order_acq_rel) != 1) {
      return false;
    }
    m_count.store(0, std::memory_order_relaxed);
    return m_owning.load(std::memory_order_relaxed) != 0;
  }

 private:
  template <class T>
  friend class ThreadAPI_AutoPtrThreadSafe;

  std::atomic<uint32_t> m_count{0};
  std::atomic<uint8_t> m_owning{1};
};

// Holds one reference to a T, which inherits ThreadAPI_Counted (and befriends this
// class) and has a static `void Destroy(T*)`. Copies share the object; nothing is
// copied. Different pointers to one object may be copied and released on different
// threads; one pointer object is used by one thread at a time.
template <class T>
class ThreadAPI_AutoPtrThreadSafe {
 public:
  ThreadAPI_AutoPtrThreadSafe() = default;
  // Takes one more reference to `object`, which may be held by other pointers already.
  ThreadAPI_AutoPtrThreadSafe(T* object) : m_object(object) {
    if (m_object) m_object->count_up();
  }
  ThreadAPI_AutoPtrThreadSafe(T* object, int owning) : ThreadAPI_AutoPtrThreadSafe(object) {
    SetOwning(owning);
  }
  ThreadAPI_AutoPtrThreadSafe(std::nullptr_t) {}
  // The first pointer to an object just made, which no other thread knows yet: counted
  // without an atomic exchange.
  static ThreadAPI_AutoPtrThreadSafe First(T* object) {
    ThreadAPI_AutoPtrThreadSafe pointer;
    object->m_count.store(1, std::memory_order_relaxed);
    pointer.m_object = object;
    return pointer;
  }
  ThreadAPI_AutoPtrThreadSafe(const ThreadAPI_AutoPtrThreadSafe& other)
      : ThreadAPI_AutoPtrThreadSafe(other.m_object) {}
  ThreadAPI_AutoPtrThreadSafe(ThreadAPI_AutoPtrThreadSafe&& other) noexcept
      : m_object(std::exchange(other.m_object, nullptr)) {}
  ThreadAPI_AutoPtrThreadSafe& operator=(ThreadAPI_AutoPtrThreadSafe other) noexcept {
    std::swap(m_object, other.m_object);
    return *this;
  }
  ~ThreadAPI_AutoPtrThreadSafe() {
    if (m_object && m_object->count_down()) T::Destroy(m_object);
  }

  T* get() const { return m_object; }
  T* operator->() const { return m_object; }
  T& operator*() const { return *m_object; }
  explicit operator bool() const { return m_object != nullptr; }
  bool IsNull() const { return m_object == nullptr; }

  // With the flag clear the object outlives its last pointer.
  void SetOwning(int owning) {
    if (m_object) m_object->m_owning.store(owning != 0, std::memory_order_relaxed);
  }

  // Gives up the reference without counting it down; the caller answers for it.
  T* detach() { return std::exchange(m_object, nullptr); }

  friend bool operator==(const ThreadAPI_AutoPtrThreadSafe& a,
                         const ThreadAPI_AutoPtrThreadSafe& b) {
    return a.m_object == b.m_object;
  }
  friend bool operator!=(const ThreadAPI_AutoPtrThreadSafe& a,
                         const ThreadAPI_AutoPtrThreadSafe& b) {
    return a.m_object != b.m_object;
  }
  friend bool operator==(const ThreadAPI_AutoPtrThreadSafe& a, std::nullptr_t) {
    return !a.m_object;
  }
  friend bool operator!=(const ThreadAPI_AutoPtrThreadSafe& a, std::nullptr_t) {
    return a.m_object;
  }

 private:
  T* m_object = nullptr;
};
