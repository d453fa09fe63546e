#include "request.h"

#include <connection/Conn_Form.h>

namespace service {

using namespace cfg::protocol;

namespace {

class RequestReader {
 public:
  RequestReader(std::string_view fields, std::string& fault) : m_form(fields), m_fault(fault) {}

  bool header(Caller& caller) {
    if (!text(CFG_FLD_USER_NAME, "the user", caller.user)) return false;
    if (!text(CFG_FLD_APPLICATION, "the application", caller.application)) return false;
    const bool has_token = m_form.peek() == CFG_FLD_SECURITY_TOKEN;
    return !has_token || text(CFG_FLD_SECURITY_TOKEN, "the token", caller.token);
  }

  bool argument(Argument argument, Request& request) {
    const Field field = field_of(argument);
    switch (argument) {
      case Argument::NONE:
        return true;
      case Argument::PATH:
        return text(field, "the path", request.path);
      case Argument::VALUE:
        return text(field, "the value", request.value);
      case Argument::VALUE_NAME:
        return text(field, "the value's name", request.value_name);
      case Argument::SEQ_NUMBER:
        return text(field, "the sequence number", request.seq_number);
      case Argument::SUBTREE:
        return m_form.ReadBinary(field, request.subtree) || missing("the subtree");
      case Argument::INDEX:
        return m_form.ReadInt(field, request.index) || missing("the index");
      case Argument::COMPRESSED:
        return m_form.ReadInt(field, request.compressed) || missing("the flag for compression");
      case Argument::MERGE:
        return m_form.ReadInt(field, request.merge) || missing("the merge flag");
      case Argument::RULES:
        return rules(field, request.rules);
    }
    return false;
  }

  bool end() { return m_form.is_done() || fail("there is more than its arguments"); }

 private:
  bool fail(std::string fault) {
    m_fault = std::move(fault);
    return false;
  }
  bool missing(const char* what) { return fail(std::string(what) + " is missing"); }

  template <class Text>
  bool text(Field field, const char* what, Text& out) {
    std::string_view found;
    if (!m_form.ReadString(field, found)) return missing(what);
    if (found.find('\0') != found.npos) return fail(std::string(what) + " holds a NUL byte");
    if (field != CFG_FLD_VALUE && found.size() > MAX_TEXT) {
      return fail(std::string(what) + " is longer than " + std::to_string(MAX_TEXT) + " bytes");
    }
    assign(out, found);
    return true;
  }
  static void assign(std::string& out, std::string_view found) { out.assign(found); }
  static void assign(RWCString& out, std::string_view found) {
    out.clear();  // and keeps its room
    out.append(found);
  }

  bool rules(Field field, std::vector<RWCString>& rules) {
    int count = 0;
    if (!m_form.ReadInt(field, count)) return missing("the number of rules");
    if (count < 0 || count > MAX_RULES) {
      return fail(std::to_string(count) + " rules are not between 0 and " +
                  std::to_string(MAX_RULES));
    }
    rules.clear();
    for (int i = 0; i < count; ++i) {
      if (!text(CFG_FLD_PATH, "a rule", rules.emplace_back())) return false;
    }
    return true;
  }

  Conn_FormReader m_form;
  std::string& m_fault;
};

}  // namespace

void Request::shrink() {
  if (value.length() > MAX_TEXT) value = RWCString();
  if (rules.size() > 16) std::vector<RWCString>().swap(rules);
  subtree = {};
}

std::vector<const char*> Request::rule_texts() const {
  std::vector<const char*> texts;
  texts.reserve(rules.size());
  for (const RWCString& rule : rules) texts.push_back(rule.data());
  return texts;
}

bool read_request(std::string_view fields, const CommandRow& row, Caller& caller, Request& request,
                  std::string& fault) {
  request.row = &row;
  request.path.clear();
  RequestReader reader(fields, fault);
  if (!reader.header(caller)) return false;
  for (const Argument argument : row.arguments) {
    if (!reader.argument(argument, request)) return false;
  }
  return reader.end();
}

}  // namespace service
