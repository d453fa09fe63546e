#include "service.h"

#include <algorithm>
#include <thread>

#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <thread/ThreadEvent.h>

#include "answers.h"
#include "memory.h"

namespace service {

using namespace cfg::protocol;
using Clock = std::chrono::steady_clock;
using std::chrono::seconds;

namespace {

constexpr Log_Logger logger("service/service", 508);

constexpr std::string_view SQLITE = "sqlite:";
constexpr auto CHECK_EVERY = std::chrono::hours(1);
constexpr int CHECKED_AT_ONCE = 1000;
// For so many seconds nobody asks for anything large: then memory goes back to the system.
constexpr int IDLE_SECONDS = 4;
constexpr auto PURGE_EVERY = std::chrono::hours(24);

Conn_ServerSettings server_settings(const Settings& settings, const Files& files) {
  Conn_ServerSettings server;
  server.address = settings.listen;
  server.port = static_cast<int>(settings.port);
  server.service_name = SERVICE_NAME;
  server.response_prefix = RESPONSE_PREFIX;
  server.threads = static_cast<int>(settings.threads);
  server.max_frame = static_cast<size_t>(settings.max_request);
  server.max_sessions = static_cast<int>(settings.max_sessions);
  server.first_kept_descriptor = static_cast<int>(files.first_kept);
  server.idle = seconds(settings.idle_time);
  server.progress = seconds(settings.progress_time);
  return server;
}

Settings fitted(Settings settings, Files& files) {
  // The clients of a busy service on the same computer need the other half.
  constexpr int64_t most = 8;
  const int64_t half = std::thread::hardware_concurrency() / 2;
  if (settings.threads == 0) settings.threads = std::clamp<int64_t>(half, 1, most);
  files = share_files(settings);
  return settings;
}

void log_change(const Call& call, const std::string& what, const char* outcome) {
  logger.info(
      "%s: %s %s: %s\n", [&] { return call.caller().text(); }, call.request().row->name, what,
      outcome);
}

void log_refusal(const Call& call, const std::string& why) {
  logger.warning("%s: %s %s is refused: %s\n", call.caller().text(), call.request().row->name,
                 call.request().path, why);
}

}  // namespace

// Calls keep_house every second.
class Service::Housekeeper : public Thread {
 public:
  explicit Housekeeper(Service& owner) : Thread("svcfg house"), m_owner(owner) {}
  ~Housekeeper() override {
    m_end.signal();
    join();
  }

 private:
  void Run() override {
    while (!m_end.wait_for(seconds(1))) keep_house();
  }
  void keep_house() try {
    m_owner.keep_house();
  } catch (const std::exception& failure) {  // the next time it may do
    logger.error("the housekeeping failed: %s\n", failure.what());
  }

  Service& m_owner;
  ThreadEvent m_end{ThreadEvent::MANUAL_RESET};
};

Service::Service(const Settings& settings)
    : m_settings(fitted(settings, m_files)),
      m_is_store_local(settings.store.rfind(SQLITE, 0) == 0),
      m_unsent(settings.max_unsent),
      m_stores(RWCString(settings.store), RWCString(settings.store_user),
               static_cast<int>(settings.write_wait * 1000)),
      m_streams(m_settings, m_stores, m_readers, m_writer) {}

Service::~Service() { stop(); }

bool Service::open_store(std::string& reason) {
  std::vector<Stores::Lease> stores;
  for (int64_t i = 0; i < m_settings.threads; ++i) {
    stores.push_back(m_stores.lease());
    if (stores.back()) continue;
    reason = "cannot open the store " + without_password(m_settings.store);
    return false;
  }
  m_quick_stores.swap(stores);
  return true;
}

bool Service::start(std::string& reason) {
  if (!has_files(reason)) return false;
  const std::string file = m_is_store_local ? m_settings.store.substr(SQLITE.size()) : "";
  if (m_is_store_local && !m_claim.take(file, reason)) return false;
  if (m_quick_stores.empty() && !open_store(reason)) return false;
  // Whether the paths of writes are checked is a setting of the tree.
  m_quick_stores.front()->InitValidatePathProperties();
  m_next_purge = Clock::now();
  if (!m_settings.datagrid.empty()) {
    Grid_Place place;
    if (!place.read(Sys_Environment::Expand(m_settings.datagrid), reason)) return false;
    m_feeder = std::make_unique<Feeder>(m_stores, std::move(place), m_settings.datagrid_keep,
                                        [this] { tell_datagrid_ready(); });
  }
  Conn_Handler& handler = *this;
  m_server = std::make_unique<Conn_Server>(server_settings(m_settings, m_files), handler);
  m_housekeeper = std::make_unique<Housekeeper>(*this);
  if (!m_writer.start(1) || !m_checker.start(1) ||
      !m_readers.start(static_cast<int>(m_settings.workers))) {
    reason = "the system gives no more threads";
    return false;
  }
  if (!m_server->start(reason)) return false;
  m_claim.tell(m_settings.listen, port());
  if (m_housekeeper->start() && (!m_feeder || m_feeder->start())) return true;
  reason = "the system gives no more threads";
  return false;
}

bool Service::has_files(std::string& reason) const {
  const std::string limit =
      "the limit of open files, " + std::to_string(m_files.limit) +
      ", is too low: max-sessions = " + std::to_string(m_settings.max_sessions) + " takes " +
      std::to_string(m_files.wanted);
  if (m_files.sessions < 1) {
    reason = limit + ", and there is no room for any";
    return false;
  }
  if (m_files.sessions < m_settings.max_sessions) {
    logger.warning("%s; there is room for %d sessions and %d streams\n", limit, m_files.sessions,
                   m_settings.max_streams);
  }
  return true;
}

void Service::stop() {
  m_is_stopping = true;
  m_housekeeper.reset();
  if (m_feeder) m_feeder->stop();
  m_turns.refuse_late(Clock::time_point::max());
  m_unsent.refuse_late(Clock::time_point::max());
  m_streams.stop();
  if (m_server) m_server->stop(seconds(m_settings.stop_time));
  m_readers.stop();
  m_writer.stop();
  m_checker.stop();
  m_feeder.reset();
  m_quick_stores.clear();
  m_claim.give_back();
}

struct Service::SessionCommand {
  Command command;
  void (Service::*run)(Call);
  void (Service::*run_after_loss)(Call);  // of the lock
};

constexpr Service::SessionCommand Service::session_commands[] = {
    {Command::LOCK, &Service::lock, &Service::tell_of_loss},
    {Command::UNLOCK, &Service::unlock, &Service::tell_of_loss},
    {Command::ROLLBACK, &Service::roll_back, &Service::tell_of_loss},
    {Command::ENABLE_EXTENDED_TIMEOUT, &Service::enable_extended, &Service::enable_extended},
    {Command::DISABLE_EXTENDED_TIMEOUT, &Service::disable_extended, &Service::disable_extended},
};

const Service::SessionCommand* Service::session_command(const CommandRow& row) {
  for (const SessionCommand& known : session_commands) {
    if (known.command == row.command) return &known;
  }
  return nullptr;
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
  Session& session = *static_cast<Session*>(connection.attachment.get());
  logger.detail("%s ends\n", [&] { return session.caller.text(); });
  const auto lock = std::exchange(session.lock, nullptr);
  if (!lock || lock->holder().empty()) return;
  logger.info("%s is gone: what it has not committed is undone\n", session.caller.text());
}

void Service::request(Conn_Session& connection, std::string_view name, std::string_view fields) {
  Call call(connection);
  const CommandRow* row = find_command(name);
  if (!row) {
    return call.refuse("there is no command '" + std::string(name.substr(0, 100)) + "'");
  }
  Session& session = call.session();
  std::string fault;
  if (!read_request(fields, *row, session.caller, session.request, fault)) {
    logger.warning("%s: %s is refused: %s\n", session.caller.text(), row->name, fault);
    return call.refuse(std::string(row->name) + ": " + fault);
  }
  if (!is_admitted(call)) return;
  if (session.lock && !call.use_lock()) return dispatch_after_loss(std::move(call));
  dispatch(std::move(call));
}

bool Service::is_admitted(Call& call) {
  std::string reason;
  if (m_gate.admits(call.caller(), call.request(), reason)) return true;
  log_refusal(call, reason);
  call.refuse(reason);
  return false;
}

void Service::dispatch(Call call) {
  switch (call.request().row->effect) {
    case Effect::READS:
      return read(std::move(call));
    case Effect::CHANGES:
      return change(std::move(call));
    case Effect::SESSION:
      break;
  }
  const SessionCommand* const command = session_command(*call.request().row);
  if (command) return (this->*command->run)(std::move(call));
  call.refuse(std::string(call.request().row->name) + " is not carried out here");
}

void Service::post(Workers& workers, Lane lane, Call call, Work work) {
  workers.post(lane, [this, work, call = std::move(call)]() mutable { do_work(call, work); });
}

void Service::do_work(Call& call, Work work) try {
  (this->*work)(call);
} catch (const std::exception& failure) {  // such as no memory
  call.fail(failure.what());
}

// --- answers -------------------------------------------------------------------------------------

// Others wait for the thread of a read that nobody wants any more.
Outcome Service::carry_out_long_read(Call& call, StoreRepository& store, AnswerRoom& room) {
  const bool is_extended = call.session().is_extended;
  const int64_t time = is_extended ? m_settings.extended_transaction_time : m_settings.read_time;
  const auto end = Clock::now() + seconds(time);
  const auto why_give_up = [&]() -> std::string {
    if (call.connection().is_gone()) return "its client is gone";
    if (call.lock() && call.lock().is_overdue()) return "its lock was lost";
    if (Clock::now() < end) return "";
    return "it takes more than " + std::to_string(time) + " seconds";
  };
  const LongRead read(store, why_give_up, room);
  return carry_out(store, call.request(), call.answer());
}

void Service::answer(Call& call, StoreRepository& store, AnswerRoom room) {
  store.TakeFailure();
  const CommandRow& row = *call.request().row;
  const bool is_change = row.effect == Effect::CHANGES;
  const bool is_long_read = !is_change && cost_of(row) == Cost::LONG;
  Outcome outcome = is_long_read ? carry_out_long_read(call, store, room)
                                 : carry_out(store, call.request(), call.answer());
  if (room.is_missing()) return answer_later(call, room);
  // An empty answer would say that there is nothing.
  const std::string failure = store.TakeFailure();
  if (!failure.empty() && (!is_change || !outcome.result)) {
    outcome.is_answered = false;
    outcome.reason = "the store failed: " + failure;
  }
  if (is_change && outcome.result && !call.lock()) note_commit();
  if (is_change) {
    log_change(call, outcome.changed,
               !outcome.result ? "refused"
               : call.lock()   ? "done, not yet committed"
                               : "done");
  }
  if (outcome.is_answered) return send(call, room);
  logger.error("%s: %s: %s\n", call.caller().text(), call.request().row->name, outcome.reason);
  call.refuse(outcome.reason);
}

void Service::send(Call& call, AnswerRoom& room) {
  if (!room.settle(static_cast<int64_t>(call.answer().size()))) return answer_later(call, room);
  Quota::Share share = room.release();
  if (!share) return call.finish();
  call.finish(std::make_shared<Quota::Share>(std::move(share)));
}

// What finds no room is dropped, and made again when there is some.
void Service::answer_later(Call& call, const AnswerRoom& room) {
  call.drop_answer();
  const auto until = room.until();
  m_unsent.ask(
      room.wanted(), until, [this, until, call = std::move(call)](Quota::Share found) mutable {
        if (!found) return refuse_unsent(call);
        Workers& workers = call.lock() ? m_writer : m_readers;
        workers.post(Lane::LONG,
                     [this, until, found = std::move(found), call = std::move(call)]() mutable {
                       try {
                         answer_from_store(call, AnswerRoom(m_unsent, std::move(found), until));
                       } catch (const std::exception& failure) {
                         call.fail(failure.what());
                       }
                     });
      });
}

AnswerRoom Service::fresh_room() {
  return AnswerRoom(m_unsent, {}, Clock::now() + seconds(m_settings.write_wait));
}

void Service::refuse_unsent(Call& call) {
  const std::string why = m_is_stopping ? "the service stops"
                                        : "answers of " + std::to_string(m_settings.max_unsent) +
                                              " bytes wait for clients that do not take them";
  log_refusal(call, why);
  call.refuse(why);
}

void Service::answer_from_store(Call& call, AnswerRoom room) {
  if (call.lock()) return answer(call, call.lock().store(), std::move(room));
  const Stores::Lease store = m_stores.lease();
  if (store) return answer(call, *store, std::move(room));
  call.refuse("the service cannot reach its store");
}

void Service::read(Call call) {
  const CommandRow& row = *call.request().row;
  if (row.reply == Reply::TREE) return m_streams.send(std::move(call));
  if (call.lock()) {
    return post(m_writer, Lane::SHORT, std::move(call), &Service::answer_now);
  }
  const Cost cost = cost_of(row);
  if (cost == Cost::QUICK && m_is_store_local) {
    return answer(call, *m_quick_stores[static_cast<size_t>(call.thread())], fresh_room());
  }
  const Lane lane = cost == Cost::LONG ? Lane::LONG : Lane::SHORT;
  post(m_readers, lane, std::move(call), &Service::answer_now);
}

// --- changes -------------------------------------------------------------------------------------

void Service::change(Call call) {
  if (call.lock()) {
    return post(m_writer, Lane::SHORT, std::move(call), &Service::answer_now);
  }
  when_it_may_write(std::move(call), &Service::change_now);
}

void Service::change_now(Call& call, Quota::Share&) { answer_now(call); }

void Service::when_it_may_write(Call call, WriteWork work) {
  const auto until = Clock::now() + seconds(m_settings.write_wait);
  m_turns.ask(1, until, [this, work, call = std::move(call)](Quota::Share turn) mutable {
    if (!turn || m_is_stopping) {
      const std::string why = why_not_yet();
      log_refusal(call, why);
      return call.refuse(why);
    }
    m_writer.post(Lane::SHORT,
                  [this, work, turn = std::move(turn), call = std::move(call)]() mutable {
                    try {
                      (this->*work)(call, turn);
                    } catch (const std::exception& failure) {
                      call.fail(failure.what());
                    }
                  });
  });
}

std::string Service::why_not_yet() {
  if (m_is_stopping) return "the service stops";
  const auto lock = holder().lock.lock();
  const std::string who = lock ? lock->holder() : std::string();
  return "another client writes for too long" +
         (who.empty() ? who : ": the lock is that of " + who);
}

// --- the session -----------------------------------------------------------------------------

void Service::lock(Call call) {
  if (call.lock()) return call.succeed(TRUE);
  when_it_may_write(std::move(call), &Service::lock_now);
}

void Service::lock_now(Call& call, Quota::Share& turn) {
  Stores::Lease store = m_stores.lease();
  if (!store) return call.refuse("the service cannot reach its store");
  store->TakeFailure();
  if (!store->Lock()) return call.refuse("the store is not to be locked: " + store->TakeFailure());
  const auto give_back = [this](Lock::Held held) {
    m_writer.post(Lane::SHORT, [held = std::move(held)] {});
  };
  Session& session = call.session();
  session.lock =
      std::make_shared<Lock>(session.caller.text(), Lock::Held{std::move(turn), std::move(store)},
                             session.is_extended, give_back);
  {
    const MutexGuard guard(m_mutex);
    m_holder = {session.lock, call.connection().weak_from_this()};
  }
  call.succeed(TRUE);
}

void Service::unlock(Call call) {
  if (!call.lock()) return call.succeed(TRUE);
  post(m_writer, Lane::SHORT, std::move(call), &Service::unlock_now);
}

void Service::unlock_now(Call& call) {
  const Lock::Held held = call.release_lock();
  const bool has_changes = held.store->HasPendingChanges();
  const int code = held.store->UnLock();
  if (has_changes) note_commit();
  log_change(call, "",
             !code         ? "the commit failed, nothing is changed"
             : has_changes ? "committed"
                           : "nothing to commit");
  const std::string failure = held.store->TakeFailure();
  if (!code && !failure.empty()) return call.refuse("the store failed: " + failure);
  call.succeed(code);
}

void Service::roll_back(Call call) {
  if (!call.lock()) return call.succeed(TRUE);
  post(m_writer, Lane::SHORT, std::move(call), &Service::roll_back_now);
}

void Service::roll_back_now(Call& call) {
  const int code = call.lock().store().Rollback();
  log_change(call, "", "undone");
  call.succeed(code);
}

void Service::set_extended(Call call, bool is_extended) {
  Session& session = call.session();
  session.is_extended = is_extended;
  if (session.lock) session.lock->set_extended(is_extended);
  call.skip();
}

// What follows would be taken for a part of what is undone, until the client has been told.
void Service::dispatch_after_loss(Call call) {
  const SessionCommand* const command = session_command(*call.request().row);
  if (command) return (this->*command->run_after_loss)(std::move(call));
  const std::string why = call.session().lock->lost();
  log_refusal(call, why);
  call.refuse(why);
}

void Service::tell_of_loss(Call call) {
  const auto lock = std::exchange(call.session().lock, nullptr);
  write_success(call.answer(), FALSE);
  write_reason(call.answer(), lock->lost());
  call.finish();
}

// --- housekeeping --------------------------------------------------------------------------------

void Service::keep_house() {
  const auto now = Clock::now();
  m_turns.refuse_late(now);
  m_unsent.refuse_late(now);
  m_streams.look_after(now);
  watch_lock(now);
  if (m_is_store_local && !m_is_checking && now >= m_next_check) {
    m_is_checking = true;
    m_checker.post(Lane::SHORT, [this] { check_store(); });
  }
  give_memory_back();
  if (now < m_next_purge) return;
  m_next_purge = now + PURGE_EVERY;
  purge_deletions();
}

Service::Holder Service::holder() {
  const MutexGuard guard(m_mutex);
  return m_holder;
}

void Service::watch_lock(Clock::time_point now) {
  const Holder holder = this->holder();
  const auto lock = holder.lock.lock();
  if (!lock) return;
  const Lock::Limits limits{seconds(m_settings.silent_lock_time),
                            seconds(m_settings.transaction_time),
                            seconds(m_settings.extended_transaction_time)};
  const std::string who = lock->holder();
  std::string reason;
  if (lock->check_time(now, limits, reason)) {
    logger.warning("%s loses the lock: %s\n", who, reason);
  }
  // What the store does is waited for, but not a client that does not take its tree.
  const auto connection = holder.connection.lock();
  if (connection && lock->is_kept_busy()) connection->break_off("it keeps the lock for too long");
}

// Once nothing large was asked for some seconds: what it took stays with the process otherwise.
void Service::give_memory_back() {
  const uint64_t done = m_readers.posted() + m_writer.posted() + m_unsent.returned();
  if (done != std::exchange(m_last_done, done)) m_idle_seconds = 0;
  if (++m_idle_seconds != IDLE_SECONDS) return;
  m_stores.shrink(m_is_store_local ? 0 : 1);  // a file is opened in no time
  for (Workers* workers : {&m_readers, &m_writer, &m_checker}) {
    workers->post_to_each(service::give_memory_back);
  }
  m_server->post_to_each(service::give_memory_back);
  service::give_memory_back();
}

// A little at a time, from end to end, and again after a pause. Damage stands in the log.
void Service::check_store() {
  struct End {
    ~End() { is_checking = false; }
    std::atomic<bool>& is_checking;
  } const end{m_is_checking};
  const Stores::Lease store = m_stores.lease();
  const bool is_sound = store && store->CheckSome(m_checked_to, CHECKED_AT_ONCE);
  if (store) store->TakeFailure();
  if (!is_sound || m_checked_to.empty()) m_next_check = Clock::now() + CHECK_EVERY;
}

void Service::purge_deletions() {
  m_turns.ask(1, Clock::now() + seconds(m_settings.write_wait), [this](Quota::Share turn) {
    if (!turn) return;
    m_writer.post(Lane::SHORT, [this, turn = std::move(turn)] {
      const Stores::Lease store = m_stores.lease();
      const int gone =
          store ? store->PurgeDeletedEntries(static_cast<int>(m_settings.keep_deletions)) : -1;
      if (gone > 0) logger.info("%d deletions are older than they are kept for\n", gone);
    });
  });
}

// Those who wait for the datagrid begin to use it.
void Service::tell_datagrid_ready() {
  m_turns.ask(1, Clock::now() + seconds(m_settings.write_wait), [this](Quota::Share turn) {
    if (!turn) return;
    m_writer.post(Lane::SHORT, [this, turn = std::move(turn)] {
      const RWCString path("halvoria\\system\\applications\\cfg\\datagrid_cache\\cache_ready");
      const Stores::Lease store = m_stores.lease();
      if (!store || store->GetBooleanValueWrapper(path, false)) return;
      if (!store->SetValue(path, "true")) return;
      logger.info("%s is set: the datagrid is complete\n", path);
      note_commit();
    });
  });
}

}  // namespace service
