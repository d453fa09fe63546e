// A service whose answers the test writes down, over real sockets.
#pragma once

#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include <CFG/CFG_Protocol.h>
#include <connection/Conn_Server.h>

// One field: its number above that of the service, and a text or a number.
struct Field {
  int number;
  std::variant<std::string, long> value;
};
using Frame = std::vector<Field>;

// What the service does with a request.
struct Answer {
  std::vector<Frame> frames{{}};
  enum { FORM, OTHER_NAME, REFUSE, REFUSE_BEHIND, CLOSE, NOTHING } how = FORM;
};

inline Answer answer_of(Frame frame) { return {{std::move(frame)}}; }

// Answers each request with what is written down for its command, else with the success code
// 1. Requests are noted as "CFG_GET_VAL 2=user 3=application 4=path".
class ScriptedService : public Conn_Handler {
 public:
  ScriptedService() {
    Conn_ServerSettings settings;
    settings.service_name = cfg::protocol::SERVICE_NAME;
    settings.response_prefix = cfg::protocol::RESPONSE_PREFIX;
    m_server = std::make_unique<Conn_Server>(settings, *this);
    std::string reason;
    if (!m_server->start(reason)) throw std::runtime_error(reason);
  }
  ~ScriptedService() override { m_server->stop(std::chrono::seconds(1)); }

  int port() const { return m_server->port(); }
  int sessions() const { return m_server->sessions(); }

  void on(const std::string& command, Answer answer) {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_answers[command] = std::move(answer);
  }

  // What was asked since the last call of it.
  std::vector<std::string> take_requests() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    m_sessions_asked.clear();
    return std::exchange(m_requests, {});
  }
  // The names of the commands alone, "CFG_LOCK;CFG_UNLOCK;".
  std::string take_commands() {
    std::string names;
    for (const std::string& asked : take_requests())
      names += asked.substr(0, asked.find(' ')) + ";";
    return names;
  }
  // The sessions that asked since then, in order of the requests.
  std::vector<uint64_t> sessions_asked() {
    const std::lock_guard<std::mutex> guard(m_mutex);
    return m_sessions_asked;
  }

  void request(Conn_Session& session, std::string_view name, std::string_view fields) override {
    Answer answer = answer_of({{10, 1L}});
    {
      const std::lock_guard<std::mutex> guard(m_mutex);
      m_requests.push_back(std::string(name) + shown(fields));
      m_sessions_asked.push_back(session.id());
      const auto found = m_answers.find(std::string(name));
      if (found != m_answers.end()) answer = found->second;
    }
    const cfg::protocol::CommandRow* row = cfg::protocol::find_command(name);
    const bool is_one_way = row && row->reply == cfg::protocol::Reply::NOTHING;
    if (is_one_way || answer.how == Answer::NOTHING) return session.skip();
    if (answer.how == Answer::REFUSE) return session.refuse("because");
    if (answer.how == Answer::CLOSE) {
      session.close();
      return session.skip();
    }
    if (answer.how == Answer::OTHER_NAME) session.answer().begin("CFG_RES_OTHER");
    if (answer.how == Answer::REFUSE_BEHIND) answer.frames.push_back({});
    send(session, std::make_shared<std::deque<Frame>>(answer.frames.begin(), answer.frames.end()),
         answer.how == Answer::REFUSE_BEHIND);
  }

 private:
  static void send(Conn_Session& session, std::shared_ptr<std::deque<Frame>> frames,
                   bool ends_refused) {
    for (const Field& field : frames->front()) {
      const auto number = static_cast<uint32_t>(cfg::protocol::CFG_SERVICE_ID + field.number);
      if (const long* value = std::get_if<long>(&field.value)) {
        session.answer().WriteLong(number, *value);
      } else {
        session.answer().WriteString(number, std::get<std::string>(field.value));
      }
    }
    frames->pop_front();
    if (frames->empty()) return ends_refused ? session.refuse("because") : session.finish();
    session.send_part([held = session.shared_from_this(), frames, ends_refused](bool is_there) {
      is_there ? send(*held, frames, ends_refused) : held->skip();
    });
  }

  static std::string shown(std::string_view fields) {
    std::string text;
    for (Conn_FormReader reader(fields); uint32_t field = reader.peek();) {
      std::string_view value;
      long number = 0;
      const bool is_token = field == cfg::protocol::CFG_FLD_SECURITY_TOKEN;
      text +=
          " " + (is_token ? "token" : std::to_string(field - cfg::protocol::CFG_SERVICE_ID)) + "=";
      if (reader.ReadString(field, value)) {
        text += field == cfg::protocol::CFG_FLD_SUBTREE
                    ? "(" + std::to_string(value.size()) + " bytes)"
                    : std::string(value);
      } else if (reader.ReadLong(field, number)) {
        text += std::to_string(number);
      } else {
        return text + "?";
      }
    }
    return text;
  }

  std::mutex m_mutex;
  std::map<std::string, Answer> m_answers;
  std::vector<std::string> m_requests;
  std::vector<uint64_t> m_sessions_asked;
  std::unique_ptr<Conn_Server> m_server;
};
