#include <CFG/CFG_InMemoryCache_Thin.h>

#include <list>
#include <utility>

#include <CFG/CFG_RepositoryServicesImp.h>
#include <CFG/CFG_SubTree.h>
#include <datagrid/IgniteOdbcClient.h>

CFG_InMemoryCache_Thin::CFG_InMemoryCache_Thin(RWCString connector_endpoint)
    : m_connector_endpoint(std::move(connector_endpoint)),
      m_client(std::make_unique<IgniteOdbcClient>()) {}
CFG_InMemoryCache_Thin::~CFG_InMemoryCache_Thin() = default;

bool CFG_InMemoryCache_Thin::Connect(std::string& connection_string) {
  return m_client->Connect(connection_string);
}

CFG_CacheQueryResult CFG_InMemoryCache_Thin::GetValue(const RWCString& path, RWCString& value) {
  bool ok = true;
  const auto found = m_client->GetValue(path, ok);
  if (!ok) return CACHE_FAILED;
  if (!found) return CACHE_NO_ENTRY;
  if (found->is_subtree) return CACHE_IS_SUBTREE;
  if (!found->exists) return CACHE_DOES_NOT_EXIST;
  value = std::move(found->value);
  return CACHE_FOUND;
}

CFG_CacheQueryResult CFG_InMemoryCache_Thin::GetSubTree(const RWCString& path,
                                                        CFG_SubTree** subtree) {
  bool ok = true;
  std::list<std::pair<RWCString, RWCString>> values;
  const auto found = m_client->GetSubTree(path, values, ok);
  if (!ok) return CACHE_FAILED;
  if (!found) return CACHE_NO_ENTRY;
  if (!found->exists) return CACHE_DOES_NOT_EXIST;
  if (!found->is_subtree) return CACHE_IS_VALUE;
  *subtree = CFG_RepositoryServicesImp::CreateSubTree(path, values);
  return *subtree ? CACHE_FOUND : CACHE_NO_ENTRY;  // there was no memory for it
}

bool CFG_InMemoryCache_Thin::SetValue(const RWCString& path, const RWCString& value) const {
  return m_client->SetValue(path, value);
}
bool CFG_InMemoryCache_Thin::DeleteValue(const RWCString& path) const {
  return m_client->DeleteValue(path);
}
bool CFG_InMemoryCache_Thin::UpdateSubTree(CFG_SubTree*, const RWCString&,
                                           const std::string& changed_path) const {
  return m_client->UpdateSubTree(RWCString(changed_path));
}
bool CFG_InMemoryCache_Thin::DeleteSubTree(const RWCString& path) const {
  return m_client->UpdateSubTree(path);
}
