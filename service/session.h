// What the service keeps with a connection.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <optional>

#include <connection/Conn_Server.h>

#include "caller.h"
#include "request.h"
#include "stores.h"
#include "tree_stream.h"

namespace service {

// Belongs to the one request that is under way; what others look at is atomic.
struct Session {
  using Clock = std::chrono::steady_clock;

  Caller caller;
  Request request;

  // While the client holds the lock: the turn to write, and a connection to the store.
  Stores::Lease store;
  std::atomic<Clock::time_point> locked_since{Clock::time_point()};
  std::atomic<bool> is_extended{false};
  bool has_lock() const { return store != nullptr; }

  // While a tree is sent.
  Stores::Lease stream_store;  // null when the lock's one is used
  std::optional<TreeStream> stream;
  Clock::time_point stream_since;
  // Of the two that a chunk waits for, the one that comes last goes on: the network, which took
  // the chunk before, and the worker, which read this one meanwhile.
  std::atomic<int> chunk_steps{0};
  std::atomic<bool> is_chunk_lost{false};
};

inline Session& session_of(const Conn_Session& connection) {
  return *static_cast<Session*>(connection.attachment.get());
}

}  // namespace service
