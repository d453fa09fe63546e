#include <connection/Conn_Connection.h>

#include <algorithm>
#include <new>

namespace {

using std::chrono::milliseconds;

// A connection unused for longer is looked at before it is used: the service may have ended.
constexpr milliseconds kFresh(100);

// What a patient one waits at most: services undo what takes longer.
constexpr milliseconds kPatience = std::chrono::hours(1);

}  // namespace

bool Conn_SyncConnector::Inside::prepare() {
  if (transaction_is_broken) {
    last_error = "the connection to " + address + " broke in the middle of a transaction";
    return false;
  }
  if (lock_is_lost) {
    last_error = "the lock was lost: the connection to " + address + " broke while it was held";
    return false;
  }
  drop_when_stale();
  if (transaction_is_broken || lock_is_lost) return prepare();
  if (!transaction_has_begun && !is_locked && silence->holds()) {
    last_error = address + " did not answer in time a moment ago and is not asked again yet";
    return false;
  }
  return stream.is_open() || open();
}

void Conn_SyncConnector::Inside::drop_when_stale() {
  if (!stream.is_open()) {  // nor was it when the process forked
    transaction_is_broken = transaction_has_begun;
    lose_lock();
    return;
  }
  const auto now = clock_type::now();
  if (now - last_looked_at <= kFresh) return;
  if (!transaction_has_begun && !is_locked && is_stale(now)) return drop();
  if (now - last_used <= kFresh) return;
  last_looked_at = now;
  if (!stream.is_live()) drop();
}

bool Conn_SyncConnector::Inside::open() {
  if (host.empty()) {
    last_error = unusable;
    return false;
  }
  std::string reason;
  asked_at = clock_type::now();
  if (!stream.open(host, port, time_outs.connect, time_outs.answer, keep_alive, reason)) {
    last_error = "cannot connect to " + address + ": " + reason.c_str();
    if (stream.was_late()) silence->note(asked_at);
    return false;
  }
  received.clear();
  is_introduced = is_token_sent = false;
  answer_by = clock_type::time_point::max();
  mark_used();
  return true;
}

void Conn_SyncConnector::Inside::drop() {
  stream.close();
  received.clear();
  is_introduced = is_token_sent = is_patient = false;
  if (transaction_has_begun) transaction_is_broken = true;
  lose_lock();
}

void Conn_SyncConnector::Inside::lose_lock() {
  lock_is_lost = lock_is_lost || is_locked;
  is_locked = false;
}

bool Conn_SyncConnector::Inside::break_off(const std::string& reason) {
  last_error = "the connection to " + address + " broke: " + reason.c_str();
  drop();
  return false;
}

bool Conn_SyncConnector::Inside::send(std::string_view service) {
  if (!is_introduced && !service.empty()) writer.introduce(service, CONN_PROTOCOL_VERSION);
  if (!writer.is_whole()) {
    last_error = "the request is too large";
    return false;
  }
  if (transactions > 0) transaction_has_begun = true;
  std::string reason;
  size_t sent;
  asked_at = clock_type::now();
  if (!stream.send(writer.finish(), sent, reason)) {
    // A service that refuses a request while it is being sent says so before it closes.
    if (stream.was_late()) silence->note(asked_at);
    return refused_meanwhile(reason) || break_off(reason);
  }
  is_introduced = true;
  return true;
}

bool Conn_SyncConnector::Inside::refused_meanwhile(std::string& reason) {
  size_t size;
  char* room = received.room(size);
  received.received(stream.receive_at_once(room, size));
  if (received.has_begun()) return true;
  return reason += " while the request was sent", false;
}

milliseconds Conn_SyncConnector::Inside::time_to_wait() const {
  const milliseconds most = is_patient ? std::max(kPatience, time_outs.answer) : time_outs.answer;
  if (answer_by == clock_type::time_point::max()) return most;
  const auto rest = std::chrono::ceil<milliseconds>(answer_by - clock_type::now());
  return std::clamp(rest, milliseconds(1), most);
}

bool Conn_SyncConnector::Inside::receive(std::string_view& frame) {
  using Found = Conn_FrameSplitter::Found;
  try {
    for (;;) {
      const Found found = received.next(frame);
      if (found == Found::FRAME) {
        silence->end();
        return true;
      }
      if (found == Found::TOO_LONG) return break_off("the answer is not well formed");
      const bool is_over =
          answer_by != clock_type::time_point::max() && answer_by <= clock_type::now();
      if (is_over) return break_off("the answer did not end in time");
      const milliseconds wait = time_to_wait();
      stream.set_receive_time_out(wait);
      size_t size;
      char* room = received.room(size);
      std::string reason;
      const size_t count = stream.receive(room, size, reason);
      if (count == 0 && stream.was_late() && wait >= time_outs.answer) silence->note(asked_at);
      if (count == 0) return break_off(reason);
      received.received(count);
    }
  } catch (const std::bad_alloc&) {
    return break_off("there is no memory for the answer");
  }
}
