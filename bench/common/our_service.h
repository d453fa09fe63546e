// The service of this library at work.
#pragma once

#include <memory>
#include <string>

#include <CFG/CFG_Repository.h>
#include <common/installation.h>
#include <common/scratch_database.h>
#include <peers/wire_peer.h>
#include <servers/Test_Service.h>

namespace bench {

// svcfg with its default settings on a SQLite file of its own, which holds an installation. The
// repositories of this process are connected to the last one that was made.
class our_service {
 public:
  our_service(const records& all, const std::string& folder);
  our_service(const our_service&) = delete;
  our_service& operator=(const our_service&) = delete;
  ~our_service();

  // One client, by one thread at a time.
  static std::unique_ptr<CFG_Repository> connect();

 private:
  const scratch_database m_store;
  Test_Service m_service;
};

// Single values through CFG_Repository.
wire_peer service_peer(const records& all, const std::string& folder);

}  // namespace bench
