#include "streams.h"

#include <algorithm>
#include <atomic>
#include <exception>
#include <optional>

#include <logging/Logger.h>

#include "tree_stream.h"

namespace service {

namespace {

constexpr Log_Logger logger("service/streams", 508);

// A client that takes longer for a chunk gives its place away when another one wants it.
constexpr std::chrono::milliseconds PATIENCE(100);
// So many for each place keep their connections to the store without one. Where there are no more,
// connections of clients that take longer than this are broken off.
constexpr size_t PARKED_FOR_A_PLACE = 4;
constexpr std::chrono::seconds LONG_PATIENCE(1);

}  // namespace

// One tree. The one step that is under way has it to itself, but for its place.
class Streams::Stream : public std::enable_shared_from_this<Stream> {
 public:
  Stream(Streams& owner, Call call)
      : m_owner(owner),
        m_connection(call.connection().shared_from_this()),
        m_call(std::move(call)) {}

  bool has_lock() const { return static_cast<bool>(m_call.lock()); }
  void start();
  void fail(std::string_view reason) { m_call.fail(reason); }
  void take_place(Quota::Share place);

  // By whoever looks after the streams.
  struct Seen {
    bool is_parked = false;   // has begun, and no place
    bool is_sending = false;  // waits for its client
    Clock::time_point since;
  };
  Seen look();
  bool park();  // gives the place away, if it has one
  void break_off() { m_connection->break_off("it does not take its tree"); }

 private:
  void next_chunk();
  void is_taken(bool is_sent);
  void chunk_step();  // of the two that come together at the next chunk
  void end_early(const char* why);

  Streams& m_owner;
  const std::shared_ptr<Conn_Session> m_connection;
  // In this order, as what is behind is closed before what is in front.
  Call m_call;
  Mutex m_mutex;
  Quota::Share m_place THREADAPI_GUARDED_BY(m_mutex);
  Clock::time_point m_sending_since THREADAPI_GUARDED_BY(m_mutex){};
  bool m_is_sending THREADAPI_GUARDED_BY(m_mutex) = false;
  Stores::Lease m_store;  // null when the lock's one is used
  std::optional<TreeStream> m_tree;
  Clock::time_point m_since;
  // Of the two that a chunk waits for, the one that comes last goes on: the network, which took
  // the chunk before, and the worker, which read this one meanwhile.
  std::atomic<int> m_chunk_steps{0};
  std::atomic<bool> m_is_chunk_lost{false};
};

void Streams::Stream::take_place(Quota::Share place) {
  const MutexGuard guard(m_mutex);
  m_place = std::move(place);
}

Streams::Stream::Seen Streams::Stream::look() {
  const MutexGuard guard(m_mutex);
  const bool has_begun = m_sending_since != Clock::time_point();
  return {has_begun && !m_place, m_is_sending, m_sending_since};
}

bool Streams::Stream::park() {
  Quota::Share place;  // goes without the lock, to whoever waits
  const MutexGuard guard(m_mutex);
  if (m_is_sending) place = std::move(m_place);
  return static_cast<bool>(place);
}

void Streams::Stream::start() {
  m_since = Clock::now();
  if (!has_lock()) m_store = m_owner.m_stores.lease();
  if (!has_lock() && !m_store) return m_call.refuse("the service cannot reach its store");
  m_tree.emplace(has_lock() ? m_call.lock().store() : *m_store);
  if (!m_tree->start(m_call.request())) {
    const std::string reason = m_call.request().path.str() + " cannot be read from the store";
    m_tree.reset();
    return m_call.refuse(reason);
  }
  next_chunk();
}

void Streams::Stream::next_chunk() {
  bool is_last = false;
  if (m_is_chunk_lost) return end_early(nullptr);
  if (Clock::now() > m_since + m_owner.m_time) return end_early("the client takes it too slowly");
  if (has_lock() && m_call.lock().is_overdue()) return end_early("its lock was lost");
  if (!m_tree->write_next(m_call.answer(), is_last)) return end_early("the store cannot be read");
  if (is_last) {
    m_tree.reset();
    return m_call.finish();
  }
  m_chunk_steps = 0;
  {
    const MutexGuard guard(m_mutex);
    m_is_sending = true;
    m_sending_since = Clock::now();
  }
  m_call.send_part([self = shared_from_this()](bool is_sent) { self->is_taken(is_sent); });
  m_tree->read_ahead();
  chunk_step();
}

// On the thread that waits for requests.
void Streams::Stream::is_taken(bool is_sent) try {
  m_is_chunk_lost = !is_sent;
  {
    const MutexGuard guard(m_mutex);
    m_is_sending = false;
  }
  chunk_step();
} catch (const std::exception& failure) {
  fail(failure.what());
}

void Streams::Stream::chunk_step() {
  if (m_chunk_steps.fetch_add(1) == 0) return;
  bool has_place;
  {
    const MutexGuard guard(m_mutex);
    has_place = static_cast<bool>(m_place);
  }
  if (has_place) return m_owner.post(shared_from_this(), &Stream::next_chunk);
  m_owner.when_there_is_a_place(shared_from_this(), &Stream::next_chunk);
}

// With no reason, the client is gone.
void Streams::Stream::end_early(const char* why) {
  m_tree.reset();
  if (!why) return m_call.skip();
  logger.error(
      "%s: %s %s is broken off: %s\n", [&] { return m_call.caller().text(); },
      m_call.request().row->name, m_call.request().path, why);
  m_call.connection().close();
  m_call.refuse("the tree could not be sent to its end");
}

// --- all of them -----------------------------------------------------------------------------

Streams::Streams(const Settings& settings, Stores& stores, Workers& readers, Workers& writer)
    : m_time(settings.stream_time),
      m_most_parked(PARKED_FOR_A_PLACE * static_cast<size_t>(settings.max_streams)),
      m_stores(stores),
      m_readers(readers),
      m_writer(writer),
      m_places(settings.max_streams) {}

Streams::~Streams() = default;

// Those that have a place, those that are parked, and some that are looked after at the same time.
int64_t Streams::most_stores(const Settings& settings) {
  return settings.max_streams * static_cast<int64_t>(PARKED_FOR_A_PLACE + 2);
}

void Streams::send(Call call) {
  const auto stream = std::make_shared<Stream>(*this, std::move(call));
  {
    const MutexGuard guard(m_mutex);
    std::erase_if(m_streams, [](const auto& known) { return known.expired(); });
    m_streams.push_back(stream);
  }
  // Who has the lock does not wait for others' places.
  if (stream->has_lock()) return post(stream, &Stream::start);
  when_there_is_a_place(stream, &Stream::start);
}

void Streams::when_there_is_a_place(const StreamPtr& stream, Step step) {
  if (stream->has_lock()) return post(stream, step);
  m_places.ask(1, Clock::time_point::max(), [this, stream, step](Quota::Share place) {
    if (!place) return stream->fail("the service stops");
    stream->take_place(std::move(place));
    post(stream, step);
  });
  if (m_places.is_awaited()) look_after(Clock::now());
}

void Streams::post(const StreamPtr& stream, Step step) {
  Workers& workers = stream->has_lock() ? m_writer : m_readers;
  workers.post(Lane::STREAM, [stream, step] {
    try {
      ((*stream).*step)();
    } catch (const std::exception& failure) {  // such as no memory
      stream->fail(failure.what());
    }
  });
}

std::vector<Streams::StreamPtr> Streams::all() {
  std::vector<StreamPtr> streams;
  const MutexGuard guard(m_mutex);
  for (const auto& known : m_streams) {
    if (auto stream = known.lock()) streams.push_back(std::move(stream));
  }
  return streams;
}

void Streams::look_after(Clock::time_point now) {
  if (!m_places.is_awaited()) return;
  size_t parked = 0;
  std::vector<std::pair<Clock::time_point, StreamPtr>> waiting;
  for (StreamPtr& stream : all()) {
    const Stream::Seen seen = stream->look();
    parked += seen.is_parked;
    const bool is_slow = seen.is_sending && now >= seen.since + PATIENCE;
    if (is_slow) waiting.emplace_back(seen.since, std::move(stream));
  }
  std::sort(waiting.begin(), waiting.end());
  size_t broken_off = 0;
  for (const auto& [since, stream] : waiting) {
    if (parked < m_most_parked) {
      parked += stream->park();
    } else if (!stream->look().is_parked && now >= since + LONG_PATIENCE) {
      waiting[broken_off++].second->break_off();
    }
  }
}

void Streams::stop() { m_places.refuse_late(Clock::time_point::max()); }

}  // namespace service
