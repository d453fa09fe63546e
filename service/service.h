// The central service.
#pragma once

#include <atomic>
#include <chrono>
#include <deque>
#include <memory>
#include <string>
#include <vector>

#include <connection/Conn_Server.h>

#include "session.h"
#include "settings.h"
#include "store_claim.h"
#include "stores.h"
#include "workers.h"
#include "write_gate.h"
#include "write_turn.h"

namespace service {

// Serves the commands of CFG_Protocol.h from one store, to any number of clients.
//
// Quick reads are answered by the threads that wait for requests, each over a connection to the
// store of its own; everything else is handed to the workers. Changes take turns. A client that
// holds the lock keeps the turn and a connection to the store of its own, so that only it sees
// what it has not committed; when it goes, or holds the lock too long, what it did is undone.
//
// Threads: start and stop by one. Failures are answers to the client and lines in the log.
class Service : private Conn_Handler {
 public:
  explicit Service(const Settings& settings);
  Service(const Service&) = delete;
  Service& operator=(const Service&) = delete;
  ~Service() override;  // stops

  // Opens the store and listens. False with the reason.
  bool start(std::string& reason);
  int port() const { return m_server->port(); }
  // Lets running requests finish, undoes open transactions, closes everything.
  void stop();

 private:
  using SessionPtr = std::shared_ptr<Conn_Session>;
  using Job = std::function<void(Conn_Session&, Session&)>;
  class Housekeeper;

  void opened(Conn_Session& connection) override;
  void request(Conn_Session& connection, std::string_view name, std::string_view fields) override;
  void closed(Conn_Session& connection) override;

  bool is_admitted(Conn_Session& connection, const Session& session);
  void read(Conn_Session& connection, Session& session);
  void change(Conn_Session& connection, Session& session);
  void session_command(Conn_Session& connection, Session& session);
  void lock(Conn_Session& connection, Session& session);
  void unlock(Conn_Session& connection, Session& session);
  void roll_back(Conn_Session& connection, Session& session);

  // Runs the job on a worker.
  void post(SessionPtr connection, Job job);
  // Over the connection to the store that the lock has, or a leased one.
  void answer_from_store(Conn_Session& connection, Session& session);
  void answer(Conn_Session& connection, Session& session, StoreRepository& store);
  void answer_success(Conn_Session& connection, int code);

  // A tree: at most so many at a time, a chunk at a time.
  void ask_for_stream(Conn_Session& connection);
  void start_stream(Conn_Session& connection, Session& session);
  void next_chunk(Conn_Session& connection, Session& session);
  void end_chunk_step(const SessionPtr& streaming);
  void end_stream(Session& session);

  // Runs the job on a worker when the connection may write; refuses it when it waits too long.
  void when_it_may_write(Conn_Session& connection, Job job);
  // Gives the lock back that the session holds.
  void leave_lock(Session& session);

  void keep_house();  // every second
  void end_old_transaction();
  void purge_deletions();

  const Settings m_settings;
  const bool m_is_store_local;
  WriteGate m_gate;
  WriteTurn m_turn;
  StoreClaim m_claim;
  Stores m_stores;
  std::vector<Stores::Lease> m_quick_stores;  // one of each waiting thread
  std::unique_ptr<Workers> m_workers;
  std::unique_ptr<Conn_Server> m_server;
  std::unique_ptr<Housekeeper> m_housekeeper;

  Mutex m_mutex;
  int m_streams THREADAPI_GUARDED_BY(m_mutex) = 0;
  std::deque<SessionPtr> m_waiting_streams THREADAPI_GUARDED_BY(m_mutex);
  std::weak_ptr<Conn_Session> m_lock_holder THREADAPI_GUARDED_BY(m_mutex);
  std::atomic<bool> m_is_stopping{false};
  std::chrono::steady_clock::time_point m_next_purge;  // the housekeeper's
};

}  // namespace service
