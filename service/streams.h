// The trees on their way to clients.
#pragma once

#include <chrono>
#include <memory>
#include <vector>

#include <thread/Mutex.h>

#include "call.h"
#include "quota.h"
#include "settings.h"
#include "workers.h"

namespace service {

// Sends each tree a chunk at a time, so that it takes no memory here whatever its size: the next
// chunk is read while the network takes one. So many trees have a place at a time. One whose
// client does not take its chunk gives its place to the next that waits, and comes back for the
// chunk after that; when there are many such, the one that waits for its client the longest is
// broken off. Any thread.
class Streams {
 public:
  using Clock = std::chrono::steady_clock;

  // What is for the session with the lock goes to the writer.
  Streams(const Settings& settings, Stores& stores, Workers& readers, Workers& writer);
  Streams(const Streams&) = delete;
  Streams& operator=(const Streams&) = delete;
  ~Streams();

  // Connections to the store that they may have at a time.
  static int64_t most_stores(const Settings& settings);

  void send(Call call);
  // Every now and then.
  void look_after(Clock::time_point now);
  // Refuses those that wait for a place.
  void stop();

 private:
  class Stream;
  using StreamPtr = std::shared_ptr<Stream>;
  using Step = void (Stream::*)();

  // Runs the step once the stream has a place.
  void when_there_is_a_place(const StreamPtr& stream, Step step);
  void post(const StreamPtr& stream, Step step);
  std::vector<StreamPtr> all();

  const std::chrono::seconds m_time;
  const size_t m_most_parked;
  Stores& m_stores;
  Workers& m_readers;
  Workers& m_writer;
  Quota m_places;
  Mutex m_mutex;
  std::vector<std::weak_ptr<Stream>> m_streams THREADAPI_GUARDED_BY(m_mutex);
};

}  // namespace service
