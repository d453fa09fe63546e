#include <common/installation.h>

#include <cctype>
#include <cstdarg>
#include <cstdio>
#include <random>

namespace bench {
namespace {

constexpr const char* host_values[] = {
    "inet_address",  "listen_port",    "enabled",        "host_name",
    "title_id",      "storage_folder", "scale_factor",   "description",
    "inet_address2", "query_port",     "keeps_archive",  "display_name",
    "station_title", "spool_folder",   "retry_interval", "remark"};
constexpr const char* applications[] = {"viewer",    "archive",   "planning",  "printing",
                                        "gateway",   "scheduler", "reporting", "recording",
                                        "importing", "exporting", "watching",  "configuration"};
constexpr const char* application_values[] = {"server_address", "port",         "active",
                                              "remote_host",    "remote_title", "work_folder",
                                              "timeout_factor"};

[[gnu::format(printf, 1, 2)]] std::string format(const char* text, ...) {
  char buffer[96];
  va_list arguments;
  va_start(arguments, text);
  std::vsnprintf(buffer, sizeof buffer, text, arguments);
  va_end(arguments);
  return buffer;
}

class maker {
 public:
  int add(int parent, const std::string& name, const std::string& value = "") {
    const std::string path = parent < 0 ? name : at(parent).path + '\\' + name;
    all.push_back({parent, name, value, path});
    return static_cast<int>(all.size()) - 1;
  }
  void add_host(int nodes, int number) {
    const int host = add(nodes, format("ws-%02u-%06d", below(40), number));
    const int properties = add(host, "properties");
    unsigned kind = 0;
    for (const char* name : host_values) add(properties, name, value(kind++));
    const int running = add(host, "applications");
    const unsigned first = below(12);
    for (unsigned i = 0; i < 4; ++i) {
      const int application = add(running, applications[(first + 3 * i) % 12]);
      kind = 0;
      for (const char* name : application_values) add(application, name, value(kind++));
    }
  }

  records all;

 private:
  const record& at(int place) const { return all[static_cast<size_t>(place)]; }
  unsigned below(unsigned n) { return static_cast<unsigned>(m_random() % n); }

  std::string value(unsigned kind) {
    switch (kind % 8) {
      case 0:
        return format("10.%u.%u.%u", below(256), below(256), below(256));
      case 1:
        return format("%u", 100 + below(65000));
      case 2:
        return below(2) ? "true" : "false";
      case 3:
        return format("WS-%05u.Northsite.Example.Org", below(100000));
      case 4:
        return format("ID_%06u", below(1000000));
      case 5:
        return format("D:\\data\\store%u\\volume_%u\\", below(10), below(100));
      case 6:
        return format("%u.%03u", below(10), below(1000));
      default:
        return format("Level <%u> & \"mode %u\"", below(9), below(9));
    }
  }

  std::mt19937_64 m_random{42};
};

}  // namespace

records make_installation(int hosts) {
  maker made;
  made.all.reserve(static_cast<size_t>(hosts) * 51 + 3);
  const int nodes = made.add(made.add(made.add(-1, "halvoria"), "system"), "nodes");
  for (int host = 0; host < hosts; ++host) made.add_host(nodes, host);
  return std::move(made.all);
}

std::vector<std::string> paths_to_read(const records& all, size_t count, size_t distinct) {
  std::mt19937_64 random(distinct);
  std::vector<const record*> pool;
  while (pool.size() < distinct) {
    const record& drawn = all[random() % all.size()];
    if (!drawn.value.empty()) pool.push_back(&drawn);
  }
  std::vector<std::string> paths;
  paths.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    std::string path = pool[random() % pool.size()]->path;
    for (size_t at = 0; i % 3 == 0 && at < path.size(); at += 5) {
      path[at] = static_cast<char>(std::toupper(static_cast<unsigned char>(path[at])));
    }
    paths.push_back(std::move(path));
  }
  return paths;
}

}  // namespace bench
