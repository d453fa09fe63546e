// get, ls, stat.
#include <algorithm>
#include <charconv>
#include <cmath>

#include <tree/Tree_Walk.h>

#include "differences.h"
#include "document.h"
#include "library_log.h"
#include "paths.h"
#include "verbs.h"

namespace cli {

namespace {

template <class T>
bool is_number(const std::string& text) {
  T number;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  return error == std::errc() && end == text.data() + text.size();
}

std::string shortest(double number) {
  char text[32];
  return {text, std::to_chars(text, text + sizeof text, number).ptr};
}

// What programs read at a path as a value of some type. The library's own conversions decide.
class TypedRead {
 public:
  TypedRead(CFG_RepositoryServices& repository, const std::string& path, const std::string& text)
      : m_repository(repository), m_path(path), m_text(text) {}

  // Null when the text is not of that type.
  Json as(const std::string& type) const {
    if (type == "int") return integer();
    if (type == "double") return real();
    if (type == "bool") return boolean();
    return m_text;
  }

 private:
  Json integer() const {
    const std::unique_ptr<int> number(m_repository.GetIntegerValue(m_path));
    return number ? Json(*number) : Json();
  }
  Json real() const {
    const size_t begin = m_text.find_first_not_of(" \t\n+-.,");
    if (begin == m_text.npos || m_text[begin] < '0' || m_text[begin] > '9') return {};
    const std::unique_ptr<double> number(m_repository.GetDoubleValue(m_path));
    return number && std::isfinite(*number) ? Json(*number) : Json();
  }
  Json boolean() const {
    const std::unique_ptr<int> answer(m_repository.GetBooleanValue(m_path));
    if (!answer) return {};
    RWCString lower = m_text;
    lower.toLower();
    if (*answer == 0 && lower != "false" && lower != "0") {
      say((m_path + ": '" + m_text + "' reads as false, as all but 'true' does").str());
    }
    return *answer == 1;
  }

  CFG_RepositoryServices& m_repository;
  const RWCString m_path;
  const std::string& m_text;
};

Json typed_default(const std::string& text, const std::string& type) {
  if (type.empty()) return text;
  if (type == "int" && is_number<int>(text)) return std::stoi(text);
  if (type == "double" && is_number<double>(text)) return std::stod(text);
  if (type == "bool" && (text == "true" || text == "false")) return text == "true";
  throw Failure(USAGE, "the default '" + text + "' is not of the type " + type);
}

std::string text_of(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_float()) return shortest(value.get<double>());
  return value.dump();
}

// Says where it was read.
const Tree_Node* node_with_origin(const Store& store, const std::string& path) {
  const Origin origin;
  const Tree_Node* node = store.node(path);
  const std::string cache = origin.cache();
  say(path + " comes from " + (cache.empty() ? store.name() : cache));
  return node;
}

}  // namespace

int run_get(Session& session) {
  const Arguments& arguments = session.arguments;
  const auto& other = arguments.default_value;
  const Json default_value = other ? typed_default(*other, arguments.type) : Json();

  Store& store = session.store();
  const std::string path = store.path(arguments.path);
  const Tree_Node* const node =
      arguments.verbose ? node_with_origin(store, path) : store.node(path);
  const bool is_there = node && node->IsLeaf();
  Json value = default_value;
  if (is_there) {
    const std::string text(node->GetText());
    value = TypedRead(store.repository(), path, text).as(arguments.type);
    if (value.is_null() && !other) {
      throw Failure(BAD_INPUT, path + ": '" + text + "' is not of the type " + arguments.type);
    }
  } else if (!other) {
    store.value(path);  // fails, and says why
  }
  const bool is_default = value.is_null() || !is_there;
  if (value.is_null()) value = default_value;

  if (arguments.json) {
    session.out.json({{"path", path}, {"value", value}, {"is_default", is_default}});
  } else {
    session.out.line(text_of(value));
  }
  return DONE;
}

namespace {

Json listing_of(const Tree_Node& key, const std::string& path) {
  Json keys = Json::array();
  Json values = Json::object();
  const Tree_ChildList* children = key.Children();
  for (uint32_t at = children->next(0); at != children->npos; at = children->next(at + 1)) {
    const Tree_Node& child = *children->at(at);
    const std::string name(child.NameView());
    if (child.IsLeaf()) {
      values[name] = child.GetText();
    } else {
      keys.push_back(name);
    }
  }
  return {{"path", path}, {"keys", keys}, {"values", values}};
}

// The line of a key or value among those of its siblings.
void list_node(Output& out, const Tree_Node& node, bool is_long) {
  const std::string name(node.NameView());
  if (!node.IsLeaf()) {
    out.shown(name + "\\" + (is_long ? "  (" + counts_text(count_below(&node)) + ")" : ""));
  } else {
    out.shown(is_long ? name + " = " + std::string(node.GetText()) : name);
  }
}

std::string path_or_root(Session& session) {
  Store& store = session.store();
  return session.arguments.path.empty() ? store.root() : store.path(session.arguments.path);
}

}  // namespace

int run_ls(Session& session) {
  Store& store = session.store();
  const std::string path = path_or_root(session);
  const bool is_long = session.arguments.long_lines;
  // The names below a key are told without fetching what is below them; their counts are not.
  const Tree_NodePtr listing = is_long ? Tree_NodePtr() : store.listing(path);
  const Tree_Node* node = listing ? listing.get() : store.node(path);
  if (!node) throw store.not_found(path);
  if (session.arguments.json) {
    session.out.json(node->IsLeaf() ? Json({{"path", path}, {"value", node->GetText()}})
                                    : listing_of(*node, path));
  } else if (node->IsLeaf()) {
    list_node(session.out, *node, is_long);
  } else {
    const Tree_ChildList* children = node->Children();
    for (uint32_t at = children->next(0); at != children->npos; at = children->next(at + 1)) {
      list_node(session.out, *children->at(at), is_long);
    }
  }
  return DONE;
}

namespace {

// The same names and numbers as in JSON, as people write them.
void print_facts(Output& out, const Json& facts) {
  for (const auto& [name, fact] : facts.items()) {
    std::string line = name;
    std::replace(line.begin(), line.end(), '_', ' ');
    line.resize(std::max<size_t>(14, line.size() + 1), ' ');
    const bool is_bytes = name == "size" || name == "length" || name == "memory";
    out.shown(line + text_of(fact) + (is_bytes ? " bytes" : ""));
  }
}

Json facts_of_key(Tree_Node& key) {
  size_t levels = 0;
  for (Tree_Walk walk(&key); walk; walk.Next()) levels = std::max(levels, walk.Depth());
  const Counts below = count_below(&key);
  Json facts = {{"keys", key.Children()->count(Tree_ChildList::KEYS)},
                {"values", key.Children()->count(Tree_ChildList::VALUES)},
                {"keys_below", below.keys},
                {"values_below", below.values},
                {"levels_below", levels},
                {"memory", key.GetTotalSize()}};
  const Tree_Node* encoding = key.Child("blobencoding");
  if (encoding && encoding->IsLeaf()) facts["blob"] = encoding->GetText();
  return facts;
}

}  // namespace

namespace {

Json facts_of_synced(const CFG_SynchronizedFileRepository::FileFacts& file) {
  const std::time_t written = file.written;
  std::tm when{};
  gmtime_r(&written, &when);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%SZ", &when);
  return {{"service", file.service.str()},
          {"user", file.user.str()},
          {"sequence", file.sequence.str()},
          {"reset_count", file.reset_count},
          {"written", text},
          {"format", file.format_version.str()},
          {"product", file.product_version.str()},
          {"encrypted", file.is_encrypted},
          {"checksums", file.has_checksums ? "agree" : "none"}};
}

// A file needs no tree.
Json facts_of_file(const std::string& argument) {
  const InputFile file(argument);
  const Document document = read_document(file);
  Json facts = {{"file", file.shown()},
                {"form", form_name(document.form)},
                {"size", file.size()},
                {"path", document.branches.front()}};
  if (document.form == Form::SYNCED) facts.update(facts_of_synced(document.synced));
  if (document.branches.size() > 1) {
    facts["path"] = document.tree->GetKeyName().str();
    facts["branches"] = document.branches.size();
  }
  facts["kind"] = "key";
  facts.update(facts_of_key(*document.top()));
  return facts;
}

Json facts_of_node(Session& session) {
  Store& store = session.store();
  const std::string path = path_or_root(session);
  Tree_Node* node = store.node(path);
  if (!node) throw store.not_found(path);
  Json facts = {{"path", path}, {"kind", node->IsLeaf() ? "value" : "key"}};
  if (node->IsLeaf()) {
    facts["length"] = node->GetText().size();
  } else {
    facts.update(facts_of_key(*node));
  }
  facts["tree"] = store.name();
  return facts;
}

}  // namespace

int run_stat(Session& session) {
  const std::string& argument = session.arguments.path;
  const bool is_file = !argument.empty() && names_file(argument);
  const Json facts = is_file ? facts_of_file(argument) : facts_of_node(session);
  if (session.arguments.json) {
    session.out.json(facts);
  } else {
    print_facts(session.out, facts);
  }
  return DONE;
}

}  // namespace cli
