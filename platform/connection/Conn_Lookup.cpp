#include <connection/Conn_Lookup.h>

#include <netdb.h>

#include <condition_variable>
#include <cstring>
#include <map>
#include <memory>
#include <thread>

#include <thread/ForkHandler.h>

namespace {

struct Result {
  std::vector<Conn_Address> addresses;
  std::string reason;
};

Result ask_system(const std::string& host, int port, int flags) {
  addrinfo wanted{};
  wanted.ai_socktype = SOCK_STREAM;
  wanted.ai_flags = AI_NUMERICSERV | flags;
  addrinfo* found = nullptr;
  Result result;
  const int error = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &wanted, &found);
  const std::unique_ptr<addrinfo, void (*)(addrinfo*)> owned(found, [](addrinfo* list) {
    if (list) freeaddrinfo(list);
  });
  for (const addrinfo* at = found; at; at = at->ai_next) {
    Conn_Address& address = result.addresses.emplace_back();
    std::memcpy(&address.storage, at->ai_addr, at->ai_addrlen);
    address.size = at->ai_addrlen;
  }
  if (!result.addresses.empty()) return result;
  const bool is_unknown = error == 0 || error == EAI_NONAME;
  result.reason = is_unknown ? "host unknown" : std::string("host unknown: ") + gai_strerror(error);
  return result;
}

// One question to the system, and who waits for its answer.
struct Question {
  std::mutex mutex;
  std::condition_variable is_answered;
  bool has_answer = false;  // guarded by mutex
  Result answer;            // likewise
};
using QuestionPtr = std::shared_ptr<Question>;

// What is being asked. A child begins anew: who asks for its parent is not there.
class Questions {
 public:
  static Questions& instance() {
    static Questions& all = *new Questions;
    return all;
  }

  // Null when the system gives no thread to ask it.
  QuestionPtr ask(const std::string& host, int port) {
    const auto key = std::make_pair(host, port);
    const MutexGuard guard(m_mutex);
    QuestionPtr& asked = m_asked[key];
    if (asked) return asked;
    asked = std::make_shared<Question>();
    try {
      std::thread([this, key, question = asked] { answer(key, *question); }).detach();
    } catch (const std::system_error&) {
      m_asked.erase(key);
      return nullptr;
    }
    return asked;
  }

 private:
  using Key = std::pair<std::string, int>;

  void answer(const Key& key, Question& question) {
    Result result;
    try {
      result = ask_system(key.first, key.second, 0);
    } catch (const std::bad_alloc&) {
      result.reason = "no memory";
    }
    {
      const MutexGuard guard(m_mutex);
      m_asked.erase(key);
    }
    const std::lock_guard guard(question.mutex);
    question.answer = std::move(result);
    question.has_answer = true;
    question.is_answered.notify_all();
  }

  static void told(void* object, ForkHandler::Phase phase) THREADAPI_UNCHECKED {
    auto& self = *static_cast<Questions*>(object);
    if (phase == ForkHandler::BEFORE) return self.m_mutex.lock();
    if (phase == ForkHandler::IN_CHILD) self.m_asked.clear();
    self.m_mutex.unlock();
  }

  Mutex m_mutex;
  std::map<Key, QuestionPtr> m_asked THREADAPI_GUARDED_BY(m_mutex);
  ForkHandler m_handler{ForkHandler::CONNECTIONS, told, this};
};

[[maybe_unused]] const Questions& made_early = Questions::instance();

}  // namespace

std::string Conn_Address::text() const {
  char name[NI_MAXHOST] = "";
  getnameinfo(get(), size, name, sizeof name, nullptr, 0, NI_NUMERICHOST);
  return name;
}

bool Conn_Lookup(const std::string& host, int port, std::chrono::steady_clock::time_point deadline,
                 std::vector<Conn_Address>& addresses, std::string& reason) {
  Result result = ask_system(host, port, AI_NUMERICHOST);  // which asks nobody
  if (result.addresses.empty()) {
    const QuestionPtr question = Questions::instance().ask(host, port);
    if (!question) {
      reason = "there is no thread to look the host up";
      return true;
    }
    std::unique_lock lock(question->mutex);
    if (!question->is_answered.wait_until(lock, deadline, [&] { return question->has_answer; })) {
      return false;
    }
    result = question->answer;
  }
  addresses = std::move(result.addresses);
  reason = std::move(result.reason);
  return true;
}
