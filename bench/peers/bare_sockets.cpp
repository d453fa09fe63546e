// The least that a service over TCP can do: one thread, one epoll, one call to receive and one to
// send, everything in place.
#include <arpa/inet.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>
#include <string_view>

#include <absl/container/flat_hash_map.h>

#include <common/need.h>
#include <common/scratch_database.h>
#include <peers/bare_sqlite.h>
#include <peers/wire_peer.h>

namespace bench {
namespace {

using std::string_view;
// Answers a request in `out` with how many bytes; 0 when it has not come whole.
using answering = std::function<size_t(string_view request, char* out)>;

constexpr size_t kRequest = 160, kAnswer = 48;
enum : uint32_t { COMMAND = 1, USER = 5020002, APPLICATION, PATH, RESULT = 5020009 };

sockaddr_in loopback(int port) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  return address;
}

void no_delay(int socket) {
  const int one = 1;
  setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
}

int listening(const wire_server::told& told) {
  const int made = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in own = loopback(0);
  socklen_t size = sizeof own;
  need(::bind(made, reinterpret_cast<sockaddr*>(&own), size) == 0 && ::listen(made, 64) == 0,
       "listening");
  getsockname(made, reinterpret_cast<sockaddr*>(&own), &size);
  told(ntohs(own.sin_port));
  return made;
}

void serve(const wire_server::told& told, const answering& answer) {
  const int accepting = listening(told), poll = ::epoll_create1(0);
  const auto watch = [poll](int socket) {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = socket;
    ::epoll_ctl(poll, EPOLL_CTL_ADD, socket, &event);
  };
  watch(accepting);
  for (;;) {
    epoll_event ready[64];
    const int count = ::epoll_wait(poll, ready, 64, -1);
    for (int i = 0; i < count; ++i) {
      const int socket = ready[i].data.fd;
      char in[4096], out[4096];
      if (socket == accepting) {
        const int client = ::accept(accepting, nullptr, nullptr);
        no_delay(client);
        watch(client);
        continue;
      }
      // On loopback, a small request comes whole.
      const ssize_t size = ::recv(socket, in, sizeof in, 0);
      const size_t length = size > 0 ? answer({in, static_cast<size_t>(size)}, out) : 0;
      if (length == 0 || ::send(socket, out, length, MSG_NOSIGNAL) <= 0) ::close(socket);
    }
  }
}

class socket_client : public wire_client {
 public:
  explicit socket_client(int port) : m_socket(::socket(AF_INET, SOCK_STREAM, 0)) {
    const sockaddr_in to = loopback(port);
    need(::connect(m_socket, reinterpret_cast<const sockaddr*>(&to), sizeof to) == 0, "connecting");
    no_delay(m_socket);
  }
  ~socket_client() override { ::close(m_socket); }

 protected:
  string_view exchange(string_view request, char* answer, size_t size) {
    need(::send(m_socket, request.data(), request.size(), MSG_NOSIGNAL) > 0, "sending");
    const ssize_t count = ::recv(m_socket, answer, size, 0);
    need(count > 0, "receiving");
    return {answer, static_cast<size_t>(count)};
  }

 private:
  const int m_socket;
};

class plain_client final : public socket_client {
 public:
  using socket_client::socket_client;
  size_t get(const std::string&) override {
    char request[kRequest] = {}, answer[kAnswer];
    return exchange({request, kRequest}, answer, kAnswer).size();
  }
};

// Number, length and bytes of each field, as the processor has them.
char* put(char* at, uint32_t number, string_view text) {
  const auto length = static_cast<uint32_t>(text.size());
  std::memcpy(at, &number, 4);
  std::memcpy(at + 4, &length, 4);
  std::memcpy(at + 8, text.data(), length);
  return at + 8 + length;
}

string_view find(string_view fields, uint32_t wanted) {
  while (fields.size() >= 8) {
    uint32_t number, length;
    std::memcpy(&number, fields.data(), 4);
    std::memcpy(&length, fields.data() + 4, 4);
    if (number == wanted) return fields.substr(8, length);
    fields.remove_prefix(std::min<size_t>(fields.size(), 8 + size_t{length}));
  }
  return {};
}

string_view frame(char* begin, const char* end) {
  const auto length = static_cast<uint32_t>(end - begin - 4);
  std::memcpy(begin, &length, 4);
  return {begin, length + size_t{4}};
}

bool is_whole(string_view bytes) {
  uint32_t length;
  if (bytes.size() < 4) return false;
  std::memcpy(&length, bytes.data(), 4);
  return bytes.size() == length + size_t{4};
}

class fields_client final : public socket_client {
 public:
  using socket_client::socket_client;
  size_t get(const std::string& path) override {
    char out[1024], in[1024];
    char* end = put(out + 4, COMMAND, "CFG_GET_VAL");
    end = put(end, USER, "service.user");
    end = put(end, APPLICATION, "image_viewer");
    const string_view answer = exchange(frame(out, put(end, PATH, path)), in, sizeof in);
    need(is_whole(answer), "an answer in one piece");
    return find(answer.substr(4), RESULT).size();
  }
};

}  // namespace

wire_peer bare_tcp() {
  const auto server = std::make_shared<wire_server>(
      [](const auto& told) { serve(told, [](string_view, char*) { return kAnswer; }); });
  return {"bare TCP, 160 and 48 bytes",
          [port = server->port()] { return std::make_unique<plain_client>(port); }, server};
}

namespace {

// Answers a value by its path.
using looking_up = std::function<string_view(string_view path)>;

wire_peer fields_peer(const char* name, const std::function<looking_up()>& prepare) {
  const auto server = std::make_shared<wire_server>([&](const auto& told) {
    const looking_up value_of = prepare();
    serve(told, [&](string_view request, char* out) -> size_t {
      if (!is_whole(request)) return 0;
      return frame(out, put(out + 4, RESULT, value_of(find(request.substr(4), PATH)))).size();
    });
  });
  return {name, [port = server->port()] { return std::make_unique<fields_client>(port); }, server};
}

}  // namespace

wire_peer bare_fields(const wire_data& data) {
  return fields_peer("numbered fields and a hash lookup, epoll", [&]() -> looking_up {
    using table = absl::flat_hash_map<std::string, std::string>;
    return [map = std::make_shared<table>(data.begin(), data.end())](string_view path) {
      const auto found = map->find(absl::string_view(path.data(), path.size()));
      return found == map->end() ? string_view() : string_view(found->second);
    };
  });
}

wire_peer bare_fields_and_sqlite(const wire_data& data, const std::string& folder) {
  const auto file = std::make_shared<scratch_database>(folder, "fields");
  wire_peer peer = fields_peer("numbered fields and a row of SQLite, epoll", [&]() -> looking_up {
    const auto database = std::make_shared<bare_sqlite>(file->file());
    database->fill(data);
    return [database](string_view path) -> string_view { return database->read(path); };
  });
  peer.server =
      std::make_shared<std::pair<decltype(file), std::shared_ptr<void>>>(file, peer.server);
  return peer;
}

}  // namespace bench
