#include <common/need.h>
#include <peers/bare_postgresql.h>
#include <peers/wire_peer.h>
#include <servers/Test_Postgres.h>

namespace bench {
namespace {

class postgresql_client final : public wire_client {
 public:
  explicit postgresql_client(const std::string& connection) : m_database(connection) {
    m_database.prepare();
  }
  size_t get(const std::string& path) override { return m_database.read(path).size(); }

 private:
  bare_postgresql m_database;
};

}  // namespace

std::unique_ptr<wire_peer> postgresql_select(const wire_data& data) {
  if (!Test_Postgres::IsInstalled()) return nullptr;
  const auto server = std::make_shared<Test_Postgres>("-c max_connections=80");
  need(server->is_running(), server->problem());
  bare_postgresql(server->connection()).fill(data);
  const auto connect = [to = server->connection()] {
    return std::make_unique<postgresql_client>(to);
  };
  return std::make_unique<wire_peer>(wire_peer{bare_postgresql::name, connect, server});
}

}  // namespace bench
