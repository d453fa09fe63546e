#include <thread/ForkHandler.h>
#include <tree/Tree_Node_Top.h>

namespace {

struct alignas(64) Lane {
  std::mutex mutex;
};
#ifdef __SANITIZE_THREAD__
constexpr unsigned kLanes = 4;  // it follows at most 64 locks of a thread, and a fork takes all
#else
constexpr unsigned kLanes = 16;
#endif
constinit Lane lanes[kLanes];

void close_all() {
  for (Lane& lane : lanes) lane.mutex.lock();
}
void open_all() {
  for (Lane& lane : lanes) lane.mutex.unlock();
}

const ForkHandler at_fork(
    ForkHandler::TREES,
    [](void*, ForkHandler::Phase phase) {
      if (phase == ForkHandler::BEFORE) {
        close_all();
      } else {
        open_all();
      }
    },
    nullptr);

}  // namespace

std::mutex& Tree_WayUp::lane() {
  static std::atomic<unsigned> threads{0};
  static thread_local const unsigned mine = threads.fetch_add(1) % kLanes;
  return lanes[mine].mutex;
}

Tree_WayUp::Closed::Closed() { close_all(); }
Tree_WayUp::Closed::~Closed() { open_all(); }
