#include <thread/ForkHandler.h>

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <vector>

namespace {
std::atomic<unsigned> generation{0};
}

struct ForkHandlers {
  std::mutex mutex;               // held across a fork, too
  std::vector<ForkHandler*> all;  // guarded by mutex: upper layers first

  // Never destroyed: static objects have handlers.
  static ForkHandlers& instance() {
    static ForkHandlers* const made = [] {
      pthread_atfork(before, in_parent, in_child);
      return new ForkHandlers;
    }();
    return *made;
  }

  void add(ForkHandler* handler) {
    const std::lock_guard guard(mutex);
    all.insert(
        std::upper_bound(all.begin(), all.end(), handler,
                         [](const auto* a, const auto* b) { return a->m_layer > b->m_layer; }),
        handler);
  }
  void remove(ForkHandler* handler) {
    const std::lock_guard guard(mutex);
    all.erase(std::find(all.begin(), all.end(), handler));
  }

 private:
  static void before() {
    ForkHandlers& self = instance();
    self.mutex.lock();
    for (const ForkHandler* handler : self.all)
      handler->m_call(handler->m_object, ForkHandler::BEFORE);
  }
  static void in_parent() { instance().after(ForkHandler::IN_PARENT); }
  static void in_child() {
    generation.fetch_add(1, std::memory_order_relaxed);
    instance().after(ForkHandler::IN_CHILD);
  }
  void after(ForkHandler::Phase phase) {
    std::for_each(all.rbegin(), all.rend(), [phase](const ForkHandler* handler) {
      handler->m_call(handler->m_object, phase);
    });
    mutex.unlock();
  }
};

ForkHandler::ForkHandler(Layer layer, Call call, void* object)
    : m_layer(layer), m_call(call), m_object(object) {
  ForkHandlers::instance().add(this);
}
ForkHandler::~ForkHandler() { ForkHandlers::instance().remove(this); }

unsigned ForkHandler::Generation() { return generation.load(std::memory_order_relaxed); }
