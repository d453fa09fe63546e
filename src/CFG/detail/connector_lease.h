// How a request comes by its connection.
#pragma once

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_Repository.h>

namespace cfg {

// A connector of the repository for this thread, given back when the lease ends.
class connector_lease {
 public:
  explicit connector_lease(CFG_Repository& repository)
      : m_repository(repository), m_connector(repository.GetConnector()) {}
  connector_lease(const connector_lease&) = delete;
  connector_lease& operator=(const connector_lease&) = delete;
  ~connector_lease() { m_repository.FreeConnector(m_connector); }

  CFG_Connector* get() const { return m_connector; }
  CFG_Connector& operator*() const { return *m_connector; }
  CFG_Connector* operator->() const { return m_connector; }

 private:
  CFG_Repository& m_repository;
  CFG_Connector* m_connector;
};

}  // namespace cfg
