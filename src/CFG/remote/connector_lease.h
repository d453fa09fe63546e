// How a request comes by its connection.
#pragma once

#include <CFG/CFG_Connector.h>
#include <CFG/CFG_Repository.h>
#include <logging/Logger.h>

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

// Every operation: lease a connector, log the entry line, ask, give back.
template <class Call, class... A>
auto request(const Log_Logger& logger, CFG_Repository& repository, Log_Format<A...> entry,
             Call call, const A&... args) {
  const connector_lease connector(repository);
  logger.trace(entry, args...);
  return call(*connector, args...);
}

}  // namespace cfg

// What `request` calls, for an operation that takes what is logged.
#define CONNECTOR_CALL(operation) \
  [](CFG_Connector& connector, const auto&... args) { return connector.operation(args...); }
