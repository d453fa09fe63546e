// The central service.
//
// A request's way:
//
//   connection      a waiting thread reads it and calls request(); from here on it is a Call, which
//                   owes one answer and refuses itself when it is dropped
//   request         its fields, as the command's row says
//   gate            who may do what
//   lock            a session that has the lock uses it until the request is answered; one that has
//                   lost it is told so instead
//   by the row's effect
//     reads         quick ones over a local store are answered at once, on the waiting thread and
//                   its own connection to the store; others by the readers, in lanes, so that long
//                   ones never take them all; trees a chunk at a time (streams)
//     changes       wait for the turn to write (quota), are made by the writer, and give it back;
//                   no read, however long, is in their way
//     session       the lock, which keeps the turn; all that its session asks for goes to the
//     writer
//   commands        what the store answers, written as the row's reply says
//   feeder          is told of what was committed, and brings it to the datagrid, if there is one
//   answer          small ones are sent; large ones count as they are made, and until
//                   they are taken (answer_room); what finds no room is made again later
//
// What is held on this way (the answer owed, the turn, the lock, a place, a connection to the
// store) is a value that gives itself back, whatever is thrown. Nobody waits while holding a thread
// but for the store. Once a second the housekeeper looks for what has taken too long.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <connection/Conn_Server.h>

#include "call.h"
#include "commands.h"
#include "feeder.h"
#include "files.h"
#include "gate.h"
#include "quota.h"
#include "settings.h"
#include "store_claim.h"
#include "stores.h"
#include "streams.h"
#include "workers.h"

namespace service {

// Serves the commands of CFG_Protocol.h from one store, to any number of clients.
//
// Changes take turns. A client that holds the lock keeps the turn and a connection to the store of
// its own, so that only it sees what it has not committed; when it goes, is silent or holds the
// lock too long, what it did is undone.
//
// Threads: start and stop by one. Failures are answers to the client and lines in the log.
class Service : private Conn_Handler {
 public:
  explicit Service(const Settings& settings);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() override;  // stops

  // A database that begins with the same computer may not be there yet: to be tried again. False
  // with the reason.
  bool open_store(std::string& reason);
  bool is_store_local() const { return m_is_store_local; }
  // Opens the store, where that is not done yet, and listens. False with the reason.
  bool start(std::string& reason);
  int port() const { return m_server->port(); }
  // Lets running requests finish, undoes open transactions, closes everything.
  void stop();

 private:
  using Clock = std::chrono::steady_clock;
  using Work = void (Service::*)(Call&);
  using WriteWork = void (Service::*)(Call&, Quota::Share& turn);
  class Housekeeper;
  struct SessionCommand;
  static const SessionCommand session_commands[];
  static const SessionCommand* session_command(const cfg::protocol::CommandRow& row);

  void opened(Conn_Session& connection) override;
  void request(Conn_Session& connection, std::string_view name, std::string_view fields) override;
  void closed(Conn_Session& connection) override;

  bool has_files(std::string& reason) const;
  bool is_admitted(Call& call);
  void dispatch(Call call);
  void read(Call call);
  void change(Call call);
  void dispatch_after_loss(Call call);
  void lock(Call call);
  void lock_now(Call& call, Quota::Share& turn);
  void unlock(Call call);
  void unlock_now(Call& call);
  void roll_back(Call call);
  void roll_back_now(Call& call);
  void enable_extended(Call call) { set_extended(std::move(call), true); }
  void disable_extended(Call call) { set_extended(std::move(call), false); }
  void set_extended(Call call, bool is_extended);
  void tell_of_loss(Call call);

  // Runs the work on one of the threads.
  void post(Workers& workers, Lane lane, Call call, Work work);
  void do_work(Call& call, Work work);
  // Runs the work on the writer when it may write; refuses it when it waits too long.
  void when_it_may_write(Call call, WriteWork work);
  std::string why_not_yet();
  void change_now(Call& call, Quota::Share& turn);
  // Over the connection to the store that the lock has, or a leased one.
  void answer_from_store(Call& call, AnswerRoom room);
  void answer_now(Call& call) { answer_from_store(call, fresh_room()); }
  void answer(Call& call, StoreRepository& store, AnswerRoom room);
  Outcome carry_out_long_read(Call& call, StoreRepository& store, AnswerRoom& room);
  void send(Call& call, AnswerRoom& room);
  void answer_later(Call& call, const AnswerRoom& room);
  AnswerRoom fresh_room();
  void refuse_unsent(Call& call);

  void keep_house();  // every second
  void watch_lock(Clock::time_point now);
  void give_memory_back();
  void purge_deletions();
  void tell_datagrid_ready();
  void note_commit() {
    if (m_feeder) m_feeder->wake();
  }
  void check_store();

  Files m_files;
  const Settings m_settings;
  const bool m_is_store_local;
  Gate m_gate;
  Quota m_turns{1};
  Quota m_unsent;  // bytes of large answers
  StoreClaim m_claim;
  Stores m_stores;
  std::vector<Stores::Lease> m_quick_stores;  // one of each waiting thread
  Workers m_writer{"svcfg writer"};           // of whoever has the turn, hence one thread
  Workers m_readers{"svcfg reader"};
  Workers m_checker{"svcfg checker"};  // of the store, which may be slow; one thread
  Streams m_streams;
  std::unique_ptr<Conn_Server> m_server;
  std::unique_ptr<Housekeeper> m_housekeeper;
  std::unique_ptr<Feeder> m_feeder;  // null: there is no datagrid

  // Who has the lock, or had it last.
  struct Holder {
    std::weak_ptr<Lock> lock;
    std::weak_ptr<Conn_Session> connection;
  };
  Holder holder();

  Mutex m_mutex;
  Holder m_holder THREADAPI_GUARDED_BY(m_mutex);
  std::atomic<bool> m_is_stopping{false};
  // Those of the look for damage, the checker's while it is under way.
  std::atomic<bool> m_is_checking{false};
  Clock::time_point m_next_check;
  std::string m_checked_to;
  // The housekeeper's.
  Clock::time_point m_next_purge;
  uint64_t m_last_done = 0;
  int m_idle_seconds = 0;
};

}  // namespace service
