// A cache of the datagrid, for texts.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include <strings/Export.h>

class Grid_Store;

// What all IgniteCacheClients have in common. One thread at a time.
class HALVORIA_API Grid_Client {
 public:
  Grid_Client();
  Grid_Client(const Grid_Client&) = delete;
  Grid_Client& operator=(const Grid_Client&) = delete;
  ~Grid_Client();

  void Connect(const std::string& cache, const std::string& address, bool reconnect,
               const std::string& user, const std::string& password,
               const std::string& certificate);
  bool IsConnected();
  bool Get(const std::string& key, std::string& value);
  bool Put(const std::string& key, const std::string& value);
  bool Remove(const std::string& key);

 private:
  struct Inside;
  // The reason when there is no connection, else empty.
  std::string open();
  bool done(bool is_done);

  std::unique_ptr<Inside> m_inside;
};
