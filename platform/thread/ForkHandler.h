// What becomes of locks, and of what they guard, when the process forks.
#pragma once

#include <atomic>
#include <new>

#include <strings/Export.h>
#include <thread/Mutex.h>

// Only the thread that forks lives on in the child. What other threads held there would be held for
// ever, and what they were changing would stay half changed. So whoever forks takes the locks
// first, as a user of them would: those of upper layers before those of lower ones. Afterwards
// they are released on both sides, lower layers first, and the child gives up what is the parent's.
//
// Registered from construction to end, so it is the last member of what it serves. None is made or
// destroyed by a thread that holds a lock that a fork takes.
class HALVORIA_API ForkHandler {
 public:
  enum Phase { BEFORE, IN_PARENT, IN_CHILD };
  enum Layer {
    FILES,
    LOG,
    TIMERS,
    TREES,
    VALUES,
    CONNECTIONS,
    DATABASES,
    REPOSITORIES
  };  // upwards
  using Call = void (*)(void* object, Phase phase);

  // `call` is told of each phase, on the thread that forks. It must not throw, and in the child
  // not wait for anything.
  ForkHandler(Layer layer, Call call, void* object);
  ForkHandler(const ForkHandler&) = delete;
  ForkHandler& operator=(const ForkHandler&) = delete;
  ~ForkHandler();

  // How many forks lie between the process that loaded the library and this one: what was
  // opened under another number belongs to an ancestor.
  static unsigned Generation();

 private:
  friend struct ForkHandlers;
  const Layer m_layer;
  const Call m_call;
  void* const m_object;
};

// A lock that is held for long, so that a fork does not wait for it: in the child it is free, and
// what it guards as it was in the middle of whatever its holder did.
class HALVORIA_API ForkReleasedMutex : public Mutex {
 public:
  ForkReleasedMutex() = default;

 private:
  static void told(void* mutex, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<ForkReleasedMutex*>(mutex);
    if (phase == ForkHandler::IN_CHILD && !self.try_lock()) {
      new (static_cast<Mutex*>(&self)) Mutex;
    } else if (phase == ForkHandler::IN_CHILD) {
      self.unlock();
    }
  }
  ForkHandler m_handler{ForkHandler::REPOSITORIES, told, this};
};

// A lock that is held for moments only, and that a fork waits for.
class HALVORIA_API ForkMutex : public Mutex {
 public:
  explicit ForkMutex(ForkHandler::Layer layer) : m_handler(layer, told, this) {}

 private:
  static void told(void* mutex, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<ForkMutex*>(mutex);
    phase == ForkHandler::BEFORE ? self.lock() : self.unlock();
  }
  ForkHandler m_handler;
};

// std::call_once that a fork waits for: a child would wait for ever for a thread that was just
// at it. The call makes no ForkHandler. Itself it is made when the library is loaded.
class HALVORIA_API ForkOnce {
 public:
  explicit ForkOnce(ForkHandler::Layer layer) : m_mutex(layer) {}

  // A call that throws is made again by the next caller.
  template <class Call>
  void call(const Call& make) {
    if (m_is_done.load(std::memory_order_acquire)) return;
    const MutexGuard guard(m_mutex);
    if (m_is_done.load(std::memory_order_relaxed)) return;
    make();
    m_is_done.store(true, std::memory_order_release);
  }

 private:
  std::atomic<bool> m_is_done{false};
  ForkMutex m_mutex;
};
