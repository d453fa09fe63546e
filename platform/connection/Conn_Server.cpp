#include <connection/Conn_Server.h>

#include <fcntl.h>

#include <utility>
#include <vector>

#include <connection/Conn_ServerSession.h>
#include <logging/Logger.h>

namespace {

using asio::ip::tcp;
using std::chrono::milliseconds;

constexpr Log_Logger logger("platform/connection/Conn_Server", 197);
constexpr milliseconds kPause(100);  // after a connection that could not be accepted
constexpr std::chrono::seconds kLineEvery(1);

std::string text_of(const tcp::endpoint& end) {
  const std::string host = end.address().to_string();
  return (end.address().is_v6() ? "[" + host + "]" : host) + ":" + std::to_string(end.port());
}

// Programs that are started do not keep it open.
template <class Socket>
void close_at_exec(Socket& socket) {
  fcntl(socket.native_handle(), F_SETFD, FD_CLOEXEC);
}

}  // namespace

struct Conn_Server::Inside {
  Inside(const Conn_ServerSettings& settings, Conn_Handler& handler)
      : shared(std::make_shared<Conn_ServerShared>(settings, handler)) {}

  bool make_threads(std::string& reason);
  bool listen(std::string& reason);
  bool start_threads(std::string& reason);
  void accept();
  void accepted(const asio::error_code& error, Conn_ServerStream::Socket socket);
  void close_at_once(Conn_ServerStream::Socket socket);
  void take_in(std::shared_ptr<Conn_ServerSession> session, Conn_ServerThread& thread);

  const std::shared_ptr<Conn_ServerShared> shared;
  std::vector<std::shared_ptr<Conn_ServerThread>> threads;
  std::unique_ptr<tcp::acceptor> acceptor;  // on the first thread
  std::unique_ptr<asio::steady_timer> pause;
  size_t next_thread = 0;
  int closed_at_once = 0;  // since the last line about them
  std::chrono::steady_clock::time_point next_line;
  uint64_t last_id = 0;
  int port = 0;
};

Conn_Server::Conn_Server(const Conn_ServerSettings& settings, Conn_Handler& handler)
    : m_inside(std::make_unique<Inside>(settings, handler)) {}

Conn_Server::~Conn_Server() { stop(milliseconds(0)); }

int Conn_Server::port() const { return m_inside->port; }
int Conn_Server::sessions() const { return m_inside->shared->admitted; }

bool Conn_Server::start(std::string& reason) {
  Inside& in = *m_inside;
  if (!in.threads.empty()) {
    reason = "the server was started before";
    return false;
  }
  if (in.make_threads(reason) && in.listen(reason) && in.start_threads(reason)) {
    in.accept();
    return true;
  }
  for (const auto& thread : in.threads) thread->finish();
  in.pause.reset();
  in.acceptor.reset();
  in.threads.clear();
  return false;
}

bool Conn_Server::Inside::make_threads(std::string& reason) try {
  const int count = std::max(shared->settings.threads, 1);
  for (int i = 0; i < count; ++i) {
    threads.push_back(std::make_shared<Conn_ServerThread>(i, shared));
  }
  pause = std::make_unique<asio::steady_timer>(threads[0]->io());
  return true;
} catch (const std::exception& failure) {  // such as no descriptors
  reason = std::string("cannot wait for connections: ") + failure.what();
  return false;
}

// Nobody is accepted before all are there.
bool Conn_Server::Inside::start_threads(std::string& reason) {
  for (const auto& thread : threads) {
    if (thread->start()) continue;
    reason = "the system gives no more threads";
    return false;
  }
  return true;
}

bool Conn_Server::Inside::listen(std::string& reason) {
  const Conn_ServerSettings& settings = shared->settings;
  asio::io_context& io = threads[0]->io();
  tcp::resolver resolver(io);
  asio::error_code error;
  const auto found =
      resolver.resolve(settings.address, std::to_string(settings.port),
                       tcp::resolver::passive | tcp::resolver::numeric_service, error);
  if (error || found.empty()) {
    reason = "<" + settings.address + "> is no address of this host";
    return false;
  }
  const tcp::endpoint end = found.begin()->endpoint();
  acceptor = std::make_unique<tcp::acceptor>(io);
  acceptor->open(end.protocol(), error);
  if (!error) close_at_exec(*acceptor);
  if (!error) acceptor->set_option(asio::socket_base::reuse_address(true), error);
  if (!error) acceptor->bind(end, error);
  if (!error) acceptor->listen(asio::socket_base::max_listen_connections, error);
  if (!error) {
    port = acceptor->local_endpoint(error).port();
    return true;
  }
  reason = error == asio::error::address_in_use
               ? text_of(end) + " is in use by another program"
               : "cannot listen on " + text_of(end) + ": " + error.message();
  return false;
}

void Conn_Server::Inside::accept() {
  const auto& thread = threads[next_thread];
  acceptor->async_accept(thread->io(),
                         [this](const asio::error_code& error, Conn_ServerStream::Socket socket) {
                           accepted(error, std::move(socket));
                         });
}

void Conn_Server::Inside::accepted(const asio::error_code& error,
                                   Conn_ServerStream::Socket socket) {
  if (shared->is_stopping) return;
  if (error) {
    // Such as too many open files: those who are there go on.
    logger.error("a connection could not be accepted: %s\n", error.message());
    pause->expires_after(kPause);
    pause->async_wait([this](const asio::error_code& stopped) {
      if (!stopped && !shared->is_stopping) accept();
    });
    return;
  }
  if (socket.native_handle() >= shared->settings.first_kept_descriptor) {
    close_at_once(std::move(socket));
    return accept();
  }
  close_at_exec(socket);
  asio::error_code gone;
  const tcp::endpoint peer = socket.remote_endpoint(gone);
  if (!gone) {
    const auto& thread = threads[next_thread];
    next_thread = (next_thread + 1) % threads.size();
    auto session =
        std::make_shared<Conn_ServerSession>(++last_id, text_of(peer), std::move(socket), thread);
    thread->post([this, session = std::move(session), &on = *thread]() mutable {
      take_in(std::move(session), on);
    });
  }
  accept();
}

// Unlike one too many, which may send on for a while, since that would take the descriptor.
void Conn_Server::Inside::close_at_once(Conn_ServerStream::Socket socket) {
  Conn_FormWriter refusal;
  refusal.begin({});
  refusal.WriteString(CONN_FLD_ERROR, "there are no descriptors left for connections");
  size_t sent;
  Conn_ServerStream(std::move(socket)).send_some(refusal.finish(), sent);
  ++closed_at_once;
  const auto now = std::chrono::steady_clock::now();
  if (now < next_line) return;
  next_line = now + kLineEvery;
  logger.error("%d connections were closed at once: the limit of open files leaves no more\n",
               std::exchange(closed_at_once, 0));
}

void Conn_Server::Inside::take_in(std::shared_ptr<Conn_ServerSession> session,
                                  Conn_ServerThread& thread) {
  Conn_ServerSession& taken = *session;
  thread.add(session);
  if (shared->is_stopping) return taken.end(nullptr);
  const int most = shared->settings.max_sessions;
  if (shared->admitted.fetch_add(1) < most) return taken.start();
  shared->admitted.fetch_sub(1);
  taken.turn_away("the sessions are full: there are " + std::to_string(most) +
                  ", and no more are allowed");
}

void Conn_Server::stop(milliseconds grace) {
  Inside& in = *m_inside;
  if (in.threads.empty() || in.shared->is_stopping.exchange(true)) return;
  in.threads[0]->post([&in] {
    asio::error_code ignored;
    in.acceptor->close(ignored);
    in.pause->cancel();
  });
  for (const auto& thread : in.threads) {
    thread->post(
        [&on = *thread] { on.for_each([](Conn_ServerSession& session) { session.close(); }); });
  }
  in.shared->wait_for_none(grace);
  for (const auto& thread : in.threads) thread->finish();
}

void Conn_Server::post_to_each(const std::function<void()>& call) {
  for (const auto& thread : m_inside->threads) thread->post(call);
}
