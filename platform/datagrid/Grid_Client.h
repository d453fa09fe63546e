// A cache of the datagrid, for texts.
#pragma once

#include <chrono>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include <strings/Export.h>

struct Grid_Answer;

// What all IgniteCacheClients have in common, and says what its operations do. One thread at a
// time.
class HALVORIA_API Grid_Client {
 public:
  // Of attempts to reach a grid that is away.
  explicit Grid_Client(
      std::chrono::milliseconds between_attempts = std::chrono::milliseconds(30000));
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
  // False when there is no answer, or none but a refusal.
  bool ask(const std::vector<std::string_view>& words, Grid_Answer& answer);
  std::string key_of(const std::string& key) const;

  const std::chrono::milliseconds m_between_attempts;
  std::unique_ptr<Inside> m_inside;
};
