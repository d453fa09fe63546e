#include "service.h"

#include <algorithm>
#include <thread>

#include <logging/Logger.h>
#include <thread/ThreadEvent.h>

#include "answers.h"
#include "commands.h"

namespace service {

using namespace cfg::protocol;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

namespace {

constexpr Log_Logger logger("service/service", 508);

constexpr std::string_view SQLITE = "sqlite:";
constexpr auto PURGE_EVERY = std::chrono::hours(24);

Conn_ServerSettings server_settings(const Settings& settings) {
  Conn_ServerSettings server;
  server.address = settings.listen;
  server.port = static_cast<int>(settings.port);
  server.service_name = SERVICE_NAME;
  server.response_prefix = RESPONSE_PREFIX;
  server.threads = static_cast<int>(settings.threads);
  server.max_frame = static_cast<size_t>(settings.max_request);
  server.max_sessions = static_cast<int>(settings.max_sessions);
  server.idle = seconds(settings.idle_time);
  server.progress = seconds(settings.progress_time);
  return server;
}

// The clients of a busy service on the same computer need the other half.
Settings with_threads(Settings settings) {
  constexpr int64_t most = 8;
  const int64_t half = std::thread::hardware_concurrency() / 2;
  if (settings.threads == 0) settings.threads = std::clamp<int64_t>(half, 1, most);
  return settings;
}

void log_change(const Session& session, const char* outcome) {
  const Request& request = session.request;
  logger.info(
      "%s: %s %s: %s\n", [&] { return session.caller.text(); }, request.row->name, request.path,
      outcome);
}

}  // namespace

// Calls keep_house every second.
class Service::Housekeeper : public Thread {
 public:
  explicit Housekeeper(Service& owner) : Thread("svcfg house"), m_owner(owner) { start(); }
  ~Housekeeper() override {
    m_end.signal();
    join();
  }

 private:
  void Run() override {
    while (!m_end.wait_for(seconds(1))) m_owner.keep_house();
  }

  Service& m_owner;
  ThreadEvent m_end{ThreadEvent::MANUAL_RESET};
};

Service::Service(const Settings& settings)
    : m_settings(with_threads(settings)),
      m_is_store_local(settings.store.rfind(SQLITE, 0) == 0),
      m_stores(RWCString(settings.store), RWCString(settings.store_user),
               static_cast<int>(settings.write_wait * 1000)) {}

Service::~Service() { stop(); }

bool Service::start(std::string& reason) {
  const std::string file = m_is_store_local ? m_settings.store.substr(SQLITE.size()) : "";
  if (m_is_store_local && !m_claim.take(file, reason)) return false;
  for (int64_t i = 0; i < m_settings.threads; ++i) {
    m_quick_stores.push_back(m_stores.lease());
    if (m_quick_stores.back()) continue;
    reason = "cannot open the store " + without_password(m_settings.store);
    return false;
  }
  // Whether the paths of writes are checked is a setting of the tree.
  m_quick_stores.front()->InitValidatePathProperties();
  m_next_purge = Clock::now();
  m_workers = std::make_unique<Workers>(static_cast<int>(m_settings.workers));
  Conn_Handler& handler = *this;
  m_server = std::make_unique<Conn_Server>(server_settings(m_settings), handler);
  if (!m_server->start(reason)) return false;
  m_claim.tell(m_settings.listen, port());
  m_housekeeper = std::make_unique<Housekeeper>(*this);
  return true;
}

void Service::stop() {
  m_is_stopping = true;
  m_housekeeper.reset();
  if (m_server) m_server->stop(seconds(m_settings.stop_time));
  if (m_workers) m_workers->stop();
  m_quick_stores.clear();
  m_claim.give_back();
}

// --- connections ---------------------------------------------------------------------------------

void Service::opened(Conn_Session& connection) {
  auto session = std::make_shared<Session>();
  session->caller.address = connection.peer();
  session->caller.session = connection.id();
  logger.detail("session %Iu from %s begins\n", static_cast<size_t>(connection.id()),
                connection.peer());
  connection.attachment = std::move(session);
}

void Service::closed(Conn_Session& connection) {
  const Session& session = session_of(connection);
  logger.detail("%s ends\n", [&] { return session.caller.text(); });
  if (!session.has_lock()) return;
  post(connection.shared_from_this(), [this](Conn_Session&, Session& left) {
    logger.info("%s is gone: what it has not committed is undone\n", left.caller.text());
    left.store->Rollback();
    leave_lock(left);
  });
}

void Service::request(Conn_Session& connection, std::string_view name, std::string_view fields) {
  const CommandRow* row = find_command(name);
  if (!row) {
    connection.refuse("there is no command '" + std::string(name.substr(0, 100)) + "'");
    return;
  }
  Session& session = session_of(connection);
  std::string fault;
  if (!read_request(fields, *row, session.caller, session.request, fault)) {
    logger.warning("%s: %s is refused: %s\n", session.caller.text(), row->name, fault);
    connection.refuse(std::string(row->name) + ": " + fault);
    return;
  }
  if (row->effect == Effect::READS) return read(connection, session);
  if (!is_admitted(connection, session)) return;
  if (row->effect == Effect::CHANGES) return change(connection, session);
  session_command(connection, session);
}

bool Service::is_admitted(Conn_Session& connection, const Session& session) {
  const Request& request = session.request;
  std::string reason;
  if (m_gate.admits(session.caller, *request.row, request.path.str(), reason)) return true;
  logger.warning("%s: %s %s is refused: %s\n", session.caller.text(), request.row->name,
                 request.path, reason);
  connection.refuse(reason);
  return false;
}

void Service::post(SessionPtr connection, Job job) {
  m_workers->post([connection = std::move(connection), job = std::move(job)] {
    Session& session = session_of(*connection);
    try {
      job(*connection, session);
    } catch (const std::exception& failure) {  // such as no memory
      logger.error("%s: %s %s failed: %s\n", session.caller.text(), session.request.row->name,
                   session.request.path, failure.what());
      connection->close();
      connection->refuse("the request failed");
    }
  });
}

// --- answers -------------------------------------------------------------------------------------

void Service::answer(Conn_Session& connection, Session& session, StoreRepository& store) {
  int result = 0;
  std::string reason;
  store.TakeFailure();
  bool is_done = carry_out(store, session.request, connection.answer(), result, reason);
  // An empty answer would say that there is nothing.
  const std::string failure = store.TakeFailure();
  if (!failure.empty() && (session.request.row->effect == Effect::READS || !result)) {
    is_done = false;
    reason = "the store failed: " + failure;
  }
  if (session.request.row->effect == Effect::CHANGES) {
    log_change(session, !result              ? "refused"
                        : session.has_lock() ? "done, not yet committed"
                                             : "done");
  }
  if (is_done) {
    connection.finish();
  } else {
    logger.error("%s: %s: %s\n", session.caller.text(), session.request.row->name, reason);
    connection.refuse(reason);
  }
}

void Service::answer_from_store(Conn_Session& connection, Session& session) {
  if (session.has_lock()) return answer(connection, session, *session.store);
  const Stores::Lease store = m_stores.lease();
  if (store) return answer(connection, session, *store);
  connection.refuse("the service cannot reach its store");
}

void Service::answer_success(Conn_Session& connection, int code) {
  write_success(connection.answer(), code);
  connection.finish();
}

void Service::read(Conn_Session& connection, Session& session) {
  const CommandRow& row = *session.request.row;
  if (row.reply == Reply::TREE) return ask_for_stream(connection);
  if (m_is_store_local && !session.has_lock() && is_quick(row)) {
    return answer(connection, session, *m_quick_stores[static_cast<size_t>(connection.thread())]);
  }
  post(connection.shared_from_this(),
       [this](Conn_Session& c, Session& s) { answer_from_store(c, s); });
}

// --- changes -------------------------------------------------------------------------------------

void Service::change(Conn_Session& connection, Session& session) {
  if (session.has_lock()) {
    return post(connection.shared_from_this(),
                [this](Conn_Session& c, Session& s) { answer_from_store(c, s); });
  }
  when_it_may_write(connection, [this](Conn_Session& c, Session& s) {
    const WriteTurnGuard turn(m_turn);
    answer_from_store(c, s);
  });
}

void Service::when_it_may_write(Conn_Session& connection, Job job) {
  const auto until = Clock::now() + seconds(m_settings.write_wait);
  m_turn.ask(until, [this, waiting = connection.shared_from_this(), job](bool is_granted) {
    if (is_granted && !m_is_stopping) return post(waiting, job);
    if (is_granted) m_turn.give_back();
    const Session& session = session_of(*waiting);
    const char* why = m_is_stopping ? "the service stops" : "another client writes for too long";
    logger.warning("%s: %s %s is refused: %s\n", session.caller.text(), session.request.row->name,
                   session.request.path, why);
    waiting->refuse(why);
  });
}

void Service::session_command(Conn_Session& connection, Session& session) {
  switch (session.request.row->command) {
    case Command::LOCK:
      return lock(connection, session);
    case Command::UNLOCK:
      return unlock(connection, session);
    case Command::ROLLBACK:
      return roll_back(connection, session);
    default:
      session.is_extended = session.request.row->command == Command::ENABLE_EXTENDED_TIMEOUT;
      connection.skip();
  }
}

void Service::lock(Conn_Session& connection, Session& session) {
  if (session.has_lock()) return answer_success(connection, TRUE);
  when_it_may_write(connection, [this](Conn_Session& c, Session& s) {
    WriteTurnGuard turn(m_turn);
    Stores::Lease store = m_stores.lease();
    if (!store) return c.refuse("the service cannot reach its store");
    store->TakeFailure();
    const int code = store->Lock();
    if (!code) return c.refuse("the store is not to be locked: " + store->TakeFailure());
    s.store = std::move(store);
    turn.keep();
    s.locked_since = Clock::now();
    {
      const MutexGuard guard(m_mutex);
      m_lock_holder = c.weak_from_this();
    }
    answer_success(c, code);
  });
}

void Service::unlock(Conn_Session& connection, Session& session) {
  if (!session.has_lock()) return answer_success(connection, TRUE);
  post(connection.shared_from_this(), [this](Conn_Session& c, Session& s) {
    const bool has_changes = s.store->HasPendingChanges();
    const int code = s.store->UnLock();
    log_change(s, !code         ? "the commit failed, nothing is changed"
                  : has_changes ? "committed"
                                : "nothing to commit");
    const std::string failure = s.store->TakeFailure();
    leave_lock(s);
    if (!code && !failure.empty()) return c.refuse("the store failed: " + failure);
    answer_success(c, code);
  });
}

void Service::roll_back(Conn_Session& connection, Session& session) {
  if (!session.has_lock()) return answer_success(connection, TRUE);
  post(connection.shared_from_this(), [this](Conn_Session& c, Session& s) {
    const int code = s.store->Rollback();
    log_change(s, "undone");
    answer_success(c, code);
  });
}

void Service::leave_lock(Session& session) {
  session.store->SetAutoCommit(1);
  session.store.reset();
  {
    const MutexGuard guard(m_mutex);
    m_lock_holder.reset();
  }
  m_turn.give_back();
}

// --- trees ---------------------------------------------------------------------------------------

void Service::ask_for_stream(Conn_Session& connection) {
  {
    const MutexGuard guard(m_mutex);
    if (m_streams >= m_settings.max_streams) {
      m_waiting_streams.push_back(connection.shared_from_this());
      return;
    }
    ++m_streams;
  }
  post(connection.shared_from_this(), [this](Conn_Session& c, Session& s) { start_stream(c, s); });
}

void Service::start_stream(Conn_Session& connection, Session& session) {
  session.stream_since = Clock::now();
  if (!session.has_lock()) session.stream_store = m_stores.lease();
  StoreRepository* store = session.has_lock() ? session.store.get() : session.stream_store.get();
  if (!store) {
    end_stream(session);
    return connection.refuse("the service cannot reach its store");
  }
  session.stream.emplace(*store);
  if (!session.stream->start(session.request)) {
    end_stream(session);
    return connection.refuse(session.request.path.str() + " cannot be read from the store");
  }
  next_chunk(connection, session);
}

void Service::next_chunk(Conn_Session& connection, Session& session) {
  bool is_last = false;
  const bool is_late = Clock::now() > session.stream_since + seconds(m_settings.stream_time);
  if (is_late || !session.stream->write_next(connection.answer(), is_last)) {
    logger.error("%s: %s %s is broken off: %s\n", session.caller.text(), session.request.row->name,
                 session.request.path,
                 is_late ? "the client takes it too slowly" : "the store cannot be read");
    end_stream(session);
    connection.refuse("the tree could not be sent to its end");
    return connection.close();
  }
  if (is_last) {
    end_stream(session);
    return connection.finish();
  }
  session.chunk_steps = 0;
  const SessionPtr streaming = connection.shared_from_this();
  connection.send_part([this, streaming](bool is_sent) {
    session_of(*streaming).is_chunk_lost = !is_sent;
    end_chunk_step(streaming);
  });
  session.stream->read_ahead();
  end_chunk_step(streaming);
}

void Service::end_chunk_step(const SessionPtr& streaming) {
  Session& session = session_of(*streaming);
  if (session.chunk_steps.fetch_add(1) == 0) return;
  if (!session.is_chunk_lost) {
    return post(streaming, [this](Conn_Session& c, Session& s) { next_chunk(c, s); });
  }
  end_stream(session);
  streaming->skip();
}

void Service::end_stream(Session& session) {
  session.stream.reset();
  session.stream_store.reset();
  SessionPtr next;
  {
    const MutexGuard guard(m_mutex);
    if (m_waiting_streams.empty()) {
      --m_streams;
      return;
    }
    next = std::move(m_waiting_streams.front());
    m_waiting_streams.pop_front();
  }
  post(next, [this](Conn_Session& c, Session& s) { start_stream(c, s); });
}

// --- housekeeping --------------------------------------------------------------------------------

void Service::keep_house() {
  const auto now = Clock::now();
  m_turn.refuse_late(now);
  end_old_transaction();
  if (now < m_next_purge) return;
  m_next_purge = now + PURGE_EVERY;
  purge_deletions();
}

void Service::end_old_transaction() {
  SessionPtr holder;
  {
    const MutexGuard guard(m_mutex);
    holder = m_lock_holder.lock();
  }
  if (!holder) return;
  const Session& session = session_of(*holder);
  const int64_t most =
      session.is_extended ? m_settings.extended_transaction_time : m_settings.transaction_time;
  if (Clock::now() < session.locked_since.load() + seconds(most)) return;
  {
    // Who has given it back meanwhile may stay, and whoever has it now.
    const MutexGuard guard(m_mutex);
    if (m_lock_holder.lock() != holder) return;
    m_lock_holder.reset();
  }
  logger.warning(
      "session %Iu from %s holds the lock for more than %Id s: its connection is closed\n",
      static_cast<size_t>(holder->id()), holder->peer(), static_cast<ptrdiff_t>(most));
  holder->close();
}

void Service::purge_deletions() {
  m_turn.ask(Clock::now() + seconds(m_settings.write_wait), [this](bool is_granted) {
    if (!is_granted) return;
    m_workers->post([this] {
      const WriteTurnGuard turn(m_turn);
      const Stores::Lease store = m_stores.lease();
      const int gone =
          store ? store->PurgeDeletedEntries(static_cast<int>(m_settings.keep_deletions)) : -1;
      if (gone > 0) logger.info("%d deletions are older than they are kept for\n", gone);
    });
  });
}

}  // namespace service
