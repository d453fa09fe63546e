// A PostgreSQL server for tests.
#pragma once

#include <functional>
#include <string>

// A server of its own on this machine, with its data in a temporary folder and listening on a
// free port of 127.0.0.1 and on a socket in that folder. It runs as long as this object, and no
// longer than the process: it and its folder are gone however the process ends. As root it runs
// as the user postgres. Start it before there are other threads.
//
// The data folder is copied from a template that the first user makes in the system's temporary
// folder and that stays there.
class Test_Postgres {
 public:
  // Settings as for the server's command line, besides those that keep it small. Without syncing
  // to the disk unless `is_durable`. Its pages have sums unless `has_sums` is false.
  explicit Test_Postgres(const std::string& settings = std::string(), bool is_durable = false,
                         bool has_sums = true);
  Test_Postgres(const Test_Postgres&) = delete;
  Test_Postgres& operator=(const Test_Postgres&) = delete;
  ~Test_Postgres();

  static bool IsInstalled();

  bool is_running() const { return !m_connection.empty(); }
  const std::string& problem() const { return m_problem; }  // why it does not run
  // A connection string of libpq for the database `postgres` and its owner.
  const std::string& connection() const { return m_connection; }
  // Ends the sessions of all clients, as a server does that is restarted.
  void disconnect_clients();
  // Ends the server in order, gives the folder of its data to `meanwhile`, and starts it again.
  bool restart(const std::function<void(const std::string& data)>& meanwhile);

 private:
  bool prepare_template(bool has_sums);
  bool start(const std::string& settings);
  bool wait_until_ready();
  void stop();

  std::string m_folder, m_template, m_connection, m_problem;
  int m_port = 0;
  int m_pipe = -1;     // the server ends when this is closed
  int m_watcher = -1;  // process id
};
