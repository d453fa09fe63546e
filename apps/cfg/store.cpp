#include "store.h"

#include <algorithm>
#include <optional>

#include <CFG/CFG_SynchronizedFileRepository.h>
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>

#include "held_store.h"
#include "library_log.h"
#include "output.h"
#include "paths.h"
#include "shared_store.h"

namespace cli {

namespace {

// Those given as name=value, for the whole process.
void set_properties(const std::vector<std::string>& properties) {
  CFG_SubTree services{RWCString("properties")};
  for (const std::string& property : properties) {
    const size_t cut = property.find('=');
    if (cut == 0 || cut == property.npos || cut + 1 == property.size()) {
      throw Failure(USAGE, "--property wants NAME=VALUE and not '" + property + "'");
    }
    services.SetProperty(property.substr(0, cut), property.substr(cut + 1));
  }
}

// The file of a database that is one.
std::string file_of_database(const CFG_ConnectionParameters& parameters) {
  constexpr std::string_view kind = "sqlite:";
  const std::string_view text = parameters.conn_string.view();
  return text.substr(0, kind.size()) == kind ? std::string(text.substr(kind.size())) : "";
}

// What is read is what a program with these parameters has; what is written goes to the service.
std::unique_ptr<Store> synced_store(const Arguments& arguments, const ChosenParameters& parameters,
                                    Store::Access access) {
  const ServiceAddress address = ServiceAddress::of(parameters.values);
  const auto is_user_given = [&](const std::string& property) {
    return property.rfind("CurrUser=", 0) == 0;
  };
  const bool has_user =
      std::any_of(arguments.properties.begin(), arguments.properties.end(), is_user_given);
  try {
    ServiceConnection(address).ping();
  } catch (const Failure&) {
    // Nobody may be waited for where there is nothing to start from.
    const RWWString file = RWWString::fromUTF8(parameters.values.xml_file);
    if (access != Store::READ || !Sys_File::Exists(file)) throw;
  }
  if (access != Store::READ) return SharedStore::of_service(address, access);
  const bool is_of_users = [&] {
    for (const std::string* typed : {&arguments.path, &arguments.left, &arguments.right}) {
      const std::string path = with_backslashes(*typed);
      if (path.rfind(CFG_SynchronizedFileRepository::USERS_IGNORE_PATH, 0) == 0) return true;
    }
    return false;
  }();
  if (is_of_users && !has_user) {
    throw Failure(USAGE,
                  "a synchronized tree has one user's branch: --property CurrUser=NAME says whose");
  }
  CFG_RepositoryServices& repository = factory_repository(arguments, parameters);
  if (has_user) repository.SetProperty("CurrUser", repository.GetProperty("CurrUser"));
  repository.IsSubTreeExist("halvoria");  // waits for the tree
  const std::string state = repository.GetProperty("HALVORIA_SYNC_STATE").str();
  if (state.rfind("stale", 0) == 0) {
    say("the tree of " + parameters.file + " is not current, but " + state);
  }
  return SharedStore::of_factory(repository, parameters.file, "");
}

std::unique_ptr<Store> store_of_parameters(const Arguments& arguments, Store::Access access) {
  const ChosenParameters parameters = choose_parameters(arguments.params_file);
  const RWCString& type = parameters.values.cfg_type;
  if (type == "synced_file") return synced_store(arguments, parameters, access);
  const bool is_remote = type == "remote";
  if (!is_remote && type != "db") return ParametersStore::open(arguments, parameters, access);
  std::optional<ServiceAddress> address;
  if (is_remote) {
    address = ServiceAddress::of(parameters.values);
    ServiceConnection(*address).ping();  // the factory would not say that nobody answers
  }
  CFG_RepositoryServices& repository = factory_repository(arguments, parameters);
  const std::string name = address ? address->text() : parameters.file;
  const std::string file = address ? "" : file_of_database(parameters.values);
  if (access == Store::READ) return SharedStore::of_factory(repository, name, file);
  return address ? SharedStore::of_service(*address, access) : SharedStore::of_database(name, file);
}

}  // namespace

std::unique_ptr<Store> Store::open(const Arguments& arguments, Access access) {
  set_properties(arguments.properties);
  if (!arguments.tree_file.empty()) return FileStore::open(arguments, access);
  if (!arguments.server.empty()) {
    const ServiceAddress address = ServiceAddress::of(arguments.server);
    ServiceConnection(address).ping();
    return SharedStore::of_service(address, access);
  }
  return store_of_parameters(arguments, access);
}

std::string Store::path(const std::string& typed) const {
  const std::string joined = with_backslashes(typed);
  if (joined.empty()) throw Failure(USAGE, "the path '" + typed + "' names nothing");
  std::string path = repository().change_string_with_properties(RWCString(joined)).str();
  if (first_of(path) != root()) {
    throw Failure(NOT_FOUND, path + ": not found: paths in " + name() + " begin with '" + root() +
                                 "' (" + root() + "\\" + path + "?)");
  }
  return path;
}

std::string Store::writable_path(const std::string& typed) const {
  std::string written = path(typed);
  if (node(written)) return written;
  if (!placeholder_in(written).empty()) throw not_found(written);
  const std::string fault = path_fault(written);
  if (!fault.empty()) throw Failure(BAD_INPUT, written + " cannot be written: " + fault);
  for (std::string_view above = parent_of(written); !above.empty(); above = parent_of(above)) {
    if (kind(above) == Kind::VALUE) {
      throw Failure(REFUSED, written + " cannot be written: " + std::string(above) + " is a value");
    }
  }
  const Reasons reasons;
  if (repository().IsValidPath(RWCString(written), "cfg")) return written;
  throw Failure(REFUSED, with_reason(written + " cannot be written", reasons));
}

Tree_Node& Store::key(const std::string& path) const {
  Tree_Node* found = node(path);
  if (!found) throw not_found(path);
  if (found->IsLeaf()) throw Failure(NOT_FOUND, path + " is a value, not a key");
  return *found;
}

Tree_Node& Store::value(const std::string& path) const {
  Tree_Node* found = node(path);
  if (!found) throw not_found(path);
  if (!found->IsLeaf()) throw Failure(NOT_FOUND, path + " is a key, not a value");
  return *found;
}

Failure Store::not_found(const std::string& path) const {
  std::string text = path + ": not found";
  const std::string_view placeholder = placeholder_in(path);
  if (!placeholder.empty()) {
    return {NOT_FOUND, text + ": the property " + std::string(placeholder) +
                           " is not set (--property NAME=VALUE)"};
  }
  std::string_view missing = path, parent = parent_of(path);
  while (!parent.empty() && kind(parent) == Kind::NOTHING) {
    missing = parent;
    parent = parent_of(parent);
  }
  if (!parent.empty()) {
    text += ": " + std::string(parent) + " has no '" + std::string(name_of(missing)) + "'";
  }
  return {NOT_FOUND, text};
}

}  // namespace cli
