#include <common/our_service.h>

#include <CFG/CFG_SubTree.h>
#include <common/need.h>
#include <common/our_tree.h>

namespace bench {
namespace {

class service_client final : public wire_client {
 public:
  size_t get(const std::string& path) override { return m_repository->GetValue(path).length(); }

 private:
  const std::unique_ptr<CFG_Repository> m_repository = our_service::connect();
};

}  // namespace

our_service::our_service(const records& all, const std::string& folder)
    : m_store(folder, "service"), m_service("sqlite:" + m_store.file(), "/dev/null") {
  need(m_service.start(), "svcfg that listens");
  m_service.use();
  CFG_SubTree tree(build_tree(all));
  need(connect()->AddOrReplaceSubTree(&tree, ""), "filling the service");
}

our_service::~our_service() { m_service.stop(); }

std::unique_ptr<CFG_Repository> our_service::connect() {
  auto repository = std::make_unique<CFG_Repository>();
  need(repository->Connect(), "a repository of the service");
  return repository;
}

wire_peer service_peer(const records& all, const std::string& folder) {
  return {"svcfg on SQLite", [] { return std::make_unique<service_client>(); },
          std::make_shared<our_service>(all, folder)};
}

}  // namespace bench
