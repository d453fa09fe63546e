// The datagrid as a cache.
#pragma once

#include <memory>

#include <CFG/CFG_InMemoryCache.h>

class IgniteOdbcClient;

// Over the installation's client library of the datagrid, which keeps no value that a client sends:
// what is told here hides the path there, until the service brings its new value.
class HALVORIA_API CFG_InMemoryCache_Thin : public CFG_InMemoryCache {
 public:
  explicit CFG_InMemoryCache_Thin(RWCString connector_endpoint);
  ~CFG_InMemoryCache_Thin() override;

  bool Connect(std::string& connection_string) override;
  CFG_CacheQueryResult GetValue(const RWCString& path, RWCString& value) override;
  CFG_CacheQueryResult GetSubTree(const RWCString& path, CFG_SubTree** subtree) override;
  bool SetValue(const RWCString& path, const RWCString& value) const override;
  bool DeleteValue(const RWCString& path) const override;
  bool UpdateSubTree(CFG_SubTree* subtree, const RWCString& path,
                     const std::string& changed_path) const override;
  bool DeleteSubTree(const RWCString& path) const override;

  const RWCString& connector_endpoint() const { return m_connector_endpoint; }

 private:
  const RWCString m_connector_endpoint;
  const std::unique_ptr<IgniteOdbcClient> m_client;
};
