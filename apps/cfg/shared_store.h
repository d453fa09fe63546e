// A tree that others use at the same time: of the central service, or of a database.
#pragma once

#include <memory>
#include <string>

#include <CFG/CFG_RepositoryServices.h>

#include "mirror.h"

namespace cli {

// Where a service is.
struct ServiceAddress {
  std::string host;
  int port = 0;

  // "HOST", "HOST:PORT", "[ADDRESS]:PORT"; a Failure(USAGE) when the text is none of them.
  static ServiceAddress of(const std::string& text);
  std::string text() const;
};

// All reads and writes of a run that changes the tree are one update, which nobody else sees
// before commit, and which is undone without one.
class SharedTree {
 public:
  // A Failure(UNREACHABLE) when no service answers there.
  static std::unique_ptr<SharedTree> of_service(const ServiceAddress& address);
  // Over the properties that the factory has set from a parameters file.
  static std::unique_ptr<SharedTree> of_database(const std::string& name);
  SharedTree(const SharedTree&) = delete;
  SharedTree& operator=(const SharedTree&) = delete;
  ~SharedTree();

  CFG_RepositoryServices& repository() { return *m_repository; }
  Mirror& mirror() { return m_mirror; }
  const std::string& name() const { return m_name; }
  static const char* root() { return "halvoria"; }

  void begin();   // Failure(UNREACHABLE) when another writes for too long
  void commit();  // Failure(REFUSED) when nothing was changed

 private:
  SharedTree(std::unique_ptr<CFG_RepositoryServices> repository, std::string name);

  std::unique_ptr<CFG_RepositoryServices> m_repository;
  const std::string m_name;
  Mirror m_mirror;
  bool m_is_begun = false;
};

}  // namespace cli
