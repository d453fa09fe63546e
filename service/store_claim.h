// Which service has the store in a file.
#pragma once

#include <string>

namespace service {

// A file of SQLite is served by one service at a time: what one commits another would tell its
// clients late. Who has it stands in the file `STORE-service` beside it, under a lock that goes
// with the process, however that ends. Programs that open the store without a service are not
// concerned.
class StoreClaim {
 public:
  StoreClaim() = default;
  StoreClaim(const StoreClaim&) = delete;
  StoreClaim& operator=(const StoreClaim&) = delete;
  ~StoreClaim() { give_back(); }

  // False with who has the file.
  bool take(const std::string& store_file, std::string& reason);
  // For whoever wants it next.
  void tell(const std::string& address, int port);
  void give_back();

 private:
  void write(const std::string& text);

  int m_descriptor = -1;
};

}  // namespace service
