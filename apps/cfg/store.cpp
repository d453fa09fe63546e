#include "store.h"

#include <unistd.h>

#include <CFG/CFG_Factory.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <utility/Tmr_CfgINI.h>

#include "activity.h"
#include "library_log.h"
#include "paths.h"
#include "tree_file.h"

namespace cli {

namespace {

// A handle on a child shares nodes with a tree that the repository keeps in memory, and
// so leads to the root itself; a copy of the root comes only where there is no such child.
Tree_NodePtr root_of(CFG_RepositoryServices& repository) {
  const RWCString any_root = "\\";
  const std::unique_ptr<CFG_SubTree> child(repository.GetSubTree(any_root, 0));
  if (child && child->GetData()->GetParent()) return Tree_NodePtr(child->GetData()->GetParent());
  const std::unique_ptr<CFG_SubTree> copy(repository.GetSubTree(any_root));
  return copy ? copy->GetData() : Tree_NodePtr();
}

// What parameters say, unless the environment says something else.
RWCString parameter(const Tmr_INI& parameters, const char* key, const char* variable) {
  RWCString text;
  parameters.GetValue(key, text);
  Sys_Environment::Get(variable, text);
  return text;
}

RWCString type_of(const Tmr_INI& parameters) {
  RWCString type = parameter(parameters, "cfg_type", "KESTRAL_G_Connection_Type");
  type.toLower();
  return type;
}

// The tree file that the parameters name, empty when they name another kind of store.
std::string tree_file_of(const Tmr_INI& parameters) {
  RWCString file;
  parameters.GetValue("xml_file", file);
  return type_of(parameters) == "file" ? file.str() : "";
}

ServiceAddress service_of(const Tmr_INI& parameters) {
  ServiceAddress address;
  address.host = parameter(parameters, "remote_server_name", "KESTRAL_G_Server_Name").str();
  address.port =
      std::atoi(parameter(parameters, "remote_server_port", "KESTRAL_G_Server_Port").data());
  return address;
}

Failure no_tree_chosen(const Tmr_CfgINI& parameters) {
  const std::vector<RWWString> places = parameters.Places();
  if (places.size() == 1) {
    return {UNREACHABLE,
            "HALVORIA_CFG_FILE names " + places.front().toUTF8().str() + ", which does not exist"};
  }
  std::string text =
      "no tree is chosen: give --file TREE.xml, --server HOST:PORT or --params FILE, or set "
      "HALVORIA_CFG_FILE; there "
      "is no parameters file at";
  for (const RWWString& place : places) text += " " + place.toUTF8().str();
  return {UNREACHABLE, text};
}

}  // namespace

Store::Store(const Arguments& arguments, Access access) : m_access(access) {
  set_properties(arguments.properties);
  if (!arguments.tree_file.empty()) {
    open_tree_file(arguments, access);
  } else if (!arguments.server.empty()) {
    open_shared(SharedTree::of_service(ServiceAddress::of(arguments.server)));
  } else {
    open_with_parameters(arguments, access);
  }
  if (m_shared) return;
  m_root = root_of(*m_repository);
  if (!m_root) throw Failure(UNREACHABLE, m_name + " holds no tree");
  m_root_name = m_root->NameView();
  // Whether the paths of writes are checked is a setting of the tree.
  if (access == WRITE) m_repository->InitValidatePathProperties();
}

// The process ends, and the system takes its memory back at once: to take apart a large tree
// that was only read would take a tenth of all its time. It stays where a leak checker finds it.
Store::~Store() {
  [[maybe_unused]] static CFG_RepositoryServices* volatile left = nullptr;
  if (m_access == READ) left = m_own.release();
}

void Store::open_tree_file(const Arguments& arguments, Access access) {
  m_name = arguments.tree_file;
  if (access == WRITE && !arguments.dry_run) m_lock.emplace(m_name, arguments.wait);
  auto file = std::make_unique<TreeFile>(m_name);
  if (arguments.create && !Sys_File::Exists(RWWString::fromUTF8(m_name))) {
    file->start_empty();
  } else {
    const Activity activity("reading " + m_name);
    try {
      file->Connect();
    } catch (const Failure& failure) {
      const bool is_missing = !Sys_File::Exists(RWWString::fromUTF8(m_name));
      const bool has_hint = is_missing && access == WRITE;
      throw Failure(UNREACHABLE, failure.text + (has_hint ? "; --create starts a new tree" : ""));
    }
  }
  if (access == WRITE && !file->why_read_only().empty()) {
    throw Failure(REFUSED,
                  m_name + " " + file->why_read_only() + "; import it into a tree to change it");
  }
  m_own = std::move(file);
  m_repository = m_own.get();
}

void Store::open_shared(std::unique_ptr<SharedTree> tree) {
  m_shared = std::move(tree);
  m_name = m_shared->name();
  m_root_name = m_shared->root();
  m_repository = &m_shared->repository();
  if (m_access == READ) return;
  m_repository->InitValidatePathProperties();
  m_shared->begin();
}

void Store::open_with_parameters(const Arguments& arguments, Access access) {
  const Reasons reasons;
  Tmr_INI given;
  const Tmr_INI* parameters = &given;
  if (!arguments.params_file.empty()) {
    m_name = arguments.params_file;
    if (!given.ReadINIFile(RWWString::fromUTF8(m_name))) {
      throw Failure(UNREACHABLE, with_reason("cannot read the parameters file " + m_name, reasons));
    }
  } else {
    const Tmr_CfgINI& found = Tmr_CfgINI::Instance();
    m_name = found.FileName().toUTF8().str();
    if (!found.IsInit() && m_name.empty()) throw no_tree_chosen(found);
    if (!found.IsInit()) {
      throw Failure(UNREACHABLE, with_reason("cannot read the parameters file " + m_name, reasons));
    }
    parameters = &found;
  }

  const RWCString type = type_of(*parameters);
  std::unique_ptr<SharedTree> service;  // asked before the factory, which would not say
  if (type == "remote") service = SharedTree::of_service(service_of(*parameters));
  const std::string tree_file = tree_file_of(*parameters);
  if (access == WRITE && !arguments.dry_run && !tree_file.empty()) {
    m_lock.emplace(tree_file, arguments.wait);
  }
  const Activity activity("reading the tree of " + m_name);
  m_repository = arguments.params_file.empty()
                     ? CFG_Factory::GetRepositoryServices()
                     : CFG_Factory::GetRepositoryServices(RWWString::fromUTF8(m_name).data());
  if (!m_repository) {
    throw Failure(UNREACHABLE, with_reason("cannot open the tree of " + m_name, reasons));
  }
  if (service) open_shared(std::move(service));
  if (type == "db") open_shared(SharedTree::of_database(m_name));
  if (!tree_file.empty()) m_name = tree_file;
}

std::string Store::path(const std::string& typed) const {
  const std::string joined = with_backslashes(typed);
  if (joined.empty()) throw Failure(USAGE, "the path '" + typed + "' names nothing");
  std::string path = m_repository->change_string_with_properties(RWCString(joined)).str();
  if (first_of(path) != m_root_name) {
    throw Failure(NOT_FOUND, path + ": not found: paths in " + m_name + " begin with '" +
                                 m_root_name + "' (" + m_root_name + "\\" + path + "?)");
  }
  return path;
}

std::string Store::writable_path(const std::string& typed) const {
  std::string written = path(typed);
  if (!placeholder_in(written).empty()) throw not_found(written);
  const std::string fault = path_fault(written);
  if (!fault.empty()) throw Failure(BAD_INPUT, written + " cannot be written: " + fault);
  for (std::string_view above = parent_of(written); !above.empty(); above = parent_of(above)) {
    if (kind(above) == Kind::VALUE) {
      throw Failure(REFUSED, written + " cannot be written: " + std::string(above) + " is a value");
    }
  }
  return written;
}

Tree_Node* Store::node(std::string_view path) const {
  if (m_shared) return m_shared->mirror().node(path);
  return m_root->Find(path.substr(std::min(m_root_name.size() + 1, path.size())));
}

Kind Store::kind(std::string_view path) const {
  if (m_shared) return m_shared->mirror().kind(path);
  const Tree_Node* there = node(path);
  return !there ? Kind::NOTHING : there->IsLeaf() ? Kind::VALUE : Kind::KEY;
}

Tree_NodePtr Store::listing(const std::string& path) const {
  if (m_shared) return m_shared->mirror().listing(path);
  return Tree_NodePtr(kind(path) == Kind::KEY ? node(path) : nullptr);
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

void Store::replace_tree(CFG_SubTree& tree) {
  const Reasons reasons;
  // The root written below no parent takes the place of the whole tree.
  const bool is_saved = m_repository->StartTransactionUpdate() &&
                        m_repository->AddOrReplaceSubTree(&tree, RWCString()) &&
                        m_repository->EndTransactionUpdate(false);
  if (!is_saved) throw Failure(REFUSED, with_reason("cannot save " + m_name, reasons));
}

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

}  // namespace cli
