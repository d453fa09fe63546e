// Keeps a part of the tree in the datagrid.
//
//   the store       changes are numbered, and deletions kept; what of the tree is wanted stands in
//                   the tree itself (cache_paths)
//   fed_tree        reads all of it, or what has changed since a number, in one state
//   feeder          looks what the grid has, and brings it what is missing
//   Grid_Feed       the grid: changes apply to the number that they begin at, and to no other
//
// Each round begins at the grid, so that nothing has to be known from before: after a restart of
// either side, and beside other feeders, it goes on from what is there, or feeds all anew where
// that is no part of this store's history.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <string>

#include <datagrid/Grid_Feed.h>
#include <thread/Thread.h>
#include <thread/ThreadEvent.h>

#include "fed_tree.h"
#include "stores.h"

namespace service {

// A thread of its own, which nobody waits for. Any thread may call `wake`.
class Feeder : private Thread {
 public:
  // `keep`: seconds that the grid keeps the records without it. `tell_ready` is called when all is
  // there for the first time, and each time that all was fed anew; it must not wait.
  Feeder(Stores& stores, Grid_Place place, int64_t keep, std::function<void()> tell_ready);
  Feeder(const Feeder&) = delete;
  Feeder& operator=(const Feeder&) = delete;
  ~Feeder() override { stop(); }

  bool start() { return Thread::start(); }
  void wake() { m_wake.signal(); }  // something was committed
  void stop();

 private:
  void Run() override;
  bool feed();
  bool feed_from(const Grid_Feed::State& state, FedTree& tree);
  bool feed_anew(const std::string& why, FedTree& tree);
  bool fail(const std::string& why);
  bool done(FedTree& tree);

  Stores& m_stores;
  Grid_Feed m_grid;
  const std::string m_where;
  const std::function<void()> m_tell_ready;
  ThreadEvent m_wake{ThreadEvent::AUTO_RESET};
  ThreadEvent m_end{ThreadEvent::MANUAL_RESET};
  std::atomic<bool> m_is_over{false};
  // The thread's.
  bool m_is_failing = false;
  bool m_is_ready_told = false;
};

}  // namespace service
