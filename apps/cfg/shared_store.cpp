#include "shared_store.h"

#include <CFG/CFG_DBRepository.h>
#include <CFG/CFG_Repository.h>
#include <CFG/CFG_SynchronizedFileRepository.h>
#include <system/Sys_Process.h>
#include <tree/Tree_Node.h>

#include "library_log.h"
#include "one_update.h"

namespace cli {

namespace {

constexpr char ROOT[] = "halvoria";

// The update sees its own changes before anybody else does, and so can be tried.
class OpenUpdate : public Draft {
 public:
  OpenUpdate(SharedStore& store, const std::set<std::string>& paths)
      : m_store(store), m_paths(paths), m_before(store.mirror().copy(paths)) {}

  CFG_RepositoryServices& repository() override { return m_store.repository(); }
  std::vector<Difference> changes() override {
    m_store.mirror().forget();
    m_after = m_store.mirror().copy(m_paths);
    return find_differences(m_before.GetData().get(), m_after.GetData().get());
  }
  void save() override { m_store.commit(); }

 private:
  SharedStore& m_store;
  const std::set<std::string> m_paths;
  CFG_SubTree m_before;
  CFG_SubTree m_after{RWCString(ROOT)};
};

// Whom the service's log names. A synchronized tree fetches what is the user's.
void introduce(CFG_RepositoryServices& repository) {
  if (!dynamic_cast<CFG_SynchronizedFileRepository*>(&repository)) {
    repository.SetProperty("CurrUser", Sys_UserName());
  }
  repository.SetProperty("CurrApp", "cfg");
}

}  // namespace

std::unique_ptr<SharedStore> SharedStore::of_service(const ServiceAddress& address, Access access) {
  auto repository = std::make_shared<OneUpdate<CFG_Repository>>();
  repository->Connect();
  introduce(*repository);
  return std::unique_ptr<SharedStore>(
      new SharedStore(std::move(repository), address.text(), "", access));
}

std::unique_ptr<SharedStore> SharedStore::of_database(const std::string& name,
                                                      const std::string& file) {
  const Reasons reasons;
  auto repository = std::make_shared<OneUpdate<CFG_DBRepository>>();
  if (!repository->Connect()) {
    throw Failure(UNREACHABLE, with_reason("cannot open the database of " + name, reasons));
  }
  return std::unique_ptr<SharedStore>(new SharedStore(std::move(repository), name, file, WRITE));
}

std::unique_ptr<SharedStore> SharedStore::of_factory(CFG_RepositoryServices& repository,
                                                     const std::string& name,
                                                     const std::string& file) {
  introduce(repository);
  const std::shared_ptr<CFG_RepositoryServices> not_owned(std::shared_ptr<void>(), &repository);
  return std::unique_ptr<SharedStore>(new SharedStore(not_owned, name, file, READ));
}

SharedStore::SharedStore(std::shared_ptr<CFG_RepositoryServices> repository,
                         const std::string& name, const std::string& file, Access access)
    : Store(name, ROOT, file),
      m_repository(std::move(repository)),
      m_mirror(*m_repository, ROOT, name) {
  if (access == WRITE) begin();
}

SharedStore::~SharedStore() {
  const Reasons reasons;  // the service undoes what is left when the connection ends
  if (m_is_begun) m_repository->EndTransactionUpdate(true);
}

std::unique_ptr<Draft> SharedStore::draft(const std::set<std::string>& paths) {
  return std::make_unique<OpenUpdate>(*this, paths);
}

void SharedStore::begin() {
  m_repository->InitValidatePathProperties();
  const Reasons reasons;
  m_is_begun = m_repository->StartTransactionUpdate();
  if (!m_is_begun) throw Failure(UNREACHABLE, with_reason("cannot change " + name(), reasons));
}

void SharedStore::commit() {
  const Reasons reasons;
  m_is_begun = false;
  if (m_repository->EndTransactionUpdate(false)) return;
  throw Failure(REFUSED, with_reason("cannot save the changes to " + name(), reasons));
}

}  // namespace cli
