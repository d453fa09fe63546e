// The connections of a repository: who has which, and which are free.
#pragma once

#include <map>
#include <memory>
#include <thread>
#include <vector>

#include <CFG/CFG_Connector.h>
#include <CFG/detail/thread_end.h>
#include <thread/ForkHandler.h>

namespace cfg {

// Free connections are given out freshest first, so that what was only needed for a while grows
// old; the old ones, and those above a limit, are closed when others come back.
//
// A thread in a transaction is bound to its connection until it ends it. A thread that ends first
// loses the connection with it, and the service undoes what was not committed.
//
// The child of a fork begins with none of them, outside any transaction.
//
// Any thread; the lock is not held during a request.
class connector_pool : public thread_bound {
 public:
  static constexpr size_t most_free = 64;

  connector_pool() { m_free.reserve(most_free + 1); }
  ~connector_pool() override;

  // Of this thread's transaction; null outside one.
  CFG_Connector* bound();
  // Null when none is free.
  std::unique_ptr<CFG_Connector> take();
  // Of a connector that this thread is bound to nothing changes hands.
  void give_back(CFG_Connector* connector);

  // False when the thread is bound already, or is about to end.
  bool bind(CFG_Connector* connector);
  void unbind();

  void disconnect_free();
  // What bound threads wait for fails at once, and all that they ask for afterwards.
  void interrupt();
  // Closes the connection that this thread is bound to: what is open at the service is undone.
  // False when there is none.
  bool give_up_bound();
  bool end_with_thread() override { return give_up_bound(); }

 private:
  static void told(void* pool, ForkHandler::Phase phase);

  Mutex m_mutex;
  std::vector<std::unique_ptr<CFG_Connector>> m_free THREADAPI_GUARDED_BY(m_mutex);  // oldest first
  std::map<std::thread::id, std::unique_ptr<CFG_Connector>> m_bound THREADAPI_GUARDED_BY(m_mutex);
  bool m_is_interrupted THREADAPI_GUARDED_BY(m_mutex) = false;
  ForkHandler m_handler{ForkHandler::REPOSITORIES, told, this};
};

}  // namespace cfg
