// The store whose tree others use at the same time: of the central service, or of a database.
#pragma once

#include <memory>
#include <string>

#include "mirror.h"
#include "service_address.h"
#include "store.h"

namespace cli {

// What a run asks for is fetched; its nodes are valid until the run changes something. All reads
// and writes of a run that changes the tree are one update, which nobody else sees before it is
// saved, and which is undone when it is not.
class SharedStore : public Store {
 public:
  // Over the service that a ServiceConnection has reached. A Failure(UNREACHABLE) when another
  // writes for too long.
  static std::unique_ptr<SharedStore> of_service(const ServiceAddress& address, Access access);
  // For changes, over the properties that the factory has set from a parameters file.
  static std::unique_ptr<SharedStore> of_database(const std::string& name, const std::string& file);
  // For reading, over the factory's repository, with the cache before it that the parameters name.
  static std::unique_ptr<SharedStore> of_factory(CFG_RepositoryServices& repository,
                                                 const std::string& name, const std::string& file);
  ~SharedStore() override;

  CFG_RepositoryServices& repository() const override { return *m_repository; }
  Tree_Node* node(std::string_view path) const override { return m_mirror.node(path); }
  Kind kind(std::string_view path) const override { return m_mirror.kind(path); }
  Tree_NodePtr listing(const std::string& path) const override { return m_mirror.listing(path); }
  std::unique_ptr<Draft> draft(const std::set<std::string>& paths) override;

  Mirror& mirror() { return m_mirror; }
  void commit();  // Failure(REFUSED) when nothing was changed

 private:
  SharedStore(std::shared_ptr<CFG_RepositoryServices> repository, const std::string& name,
              const std::string& file, Access access);
  void begin();

  const std::shared_ptr<CFG_RepositoryServices> m_repository;
  mutable Mirror m_mirror;
  bool m_is_begun = false;
};

}  // namespace cli
