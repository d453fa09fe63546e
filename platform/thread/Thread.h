// A thread as an object.
#pragma once

#include <thread>

#include <strings/Export.h>
#include <strings/RWCString.h>

// Derive and override Run. The object must outlive its thread: call join before it ends,
// at the latest first thing in the derived destructor (the base's comes too late, Run
// would see half an object). start and join are for one owning thread.
class HALVORIA_API Thread {
 public:
  // `name` is what debuggers and process lists show, its first 15 bytes.
  explicit Thread(const RWCString& name) : m_name(name) {}
  virtual ~Thread();
  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  // Begins Run on a new thread. False when it was started before and not joined, or when
  // the system gives no thread.
  bool start();

  // Waits until Run has returned; at once when never started. A thread that joins itself
  // would wait for ever: that call does nothing.
  void join();
  bool is_started() const { return m_thread.joinable(); }

  const RWCString& name() const { return m_name; }

 protected:
  virtual void Run() = 0;  // must not throw

 private:
  RWCString m_name;
  std::thread m_thread;
};
