#include <CFG/CFG_ServicesImp.h>

#include <algorithm>
#include <atomic>
#include <charconv>
#include <cstring>
#include <memory>
#include <new>
#include <optional>
#include <typeinfo>
#include <vector>

#include <CFG/CFG_FileRepository.h>
#include <CFG/CFG_MemoryRepository.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/blob_format.h>
#include <CFG/detail/exact_reads.h>
#include <CFG/detail/key_renaming.h>
#include <CFG/detail/path_validation.h>
#include <CFG/detail/paths.h>
#include <CFG/detail/properties.h>
#include <CFG/detail/search_rule.h>
#include <i18n/I18n_ConvertUtils.h>
#include <i18n/I18n_DecimalConvertUtils.h>
#include <i18n/I18n_ShortNumber.h>
#include <logging/Logger.h>
#include <system/Sys_File.h>
#include <tree/Tree_Node.h>
#include <utility/Tmr_Base64Utils.h>
#include <utility/Tmr_SocketWrapper.h>

using SubTreePtr = std::unique_ptr<CFG_SubTree>;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_ServicesImp", 502);

constexpr size_t longest_blob = 0x7FFFFFFF;  // what an int says

std::atomic<int> monitor_mode{0};
std::atomic<bool> monitor_active{false};

constexpr char lower(char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; }

bool is_equal_ignoring_case(std::string_view a, std::string_view b) {
  return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                    [](char x, char y) { return lower(x) == lower(y); });
}

// Letters of both cases differ in one bit, and no other byte becomes a letter by it.
bool is_true(std::string_view text) {
  uint32_t given, wanted;
  if (text.size() != sizeof given) return false;
  std::memcpy(&given, text.data(), sizeof given);
  std::memcpy(&wanted, "true", sizeof wanted);
  return (given | 0x20202020) == wanted;
}

// The number at the start of a text: white space, a sign, digits, and whatever follows them.
// False when there are no digits or an int has no room for them.
bool read_leading_integer(std::string_view text, int& number) {
  uint32_t value;
  if (I18n_ShortNumber::ReadInteger(text, value)) {
    number = static_cast<int>(value);
    return true;
  }
  const char* from = text.data();
  const char* const end = from + text.size();
  while (from != end && (*from == ' ' || (*from >= '\t' && *from <= '\r'))) ++from;
  if (from != end && *from == '+' && (from + 1 == end || from[1] != '-')) ++from;
  return std::from_chars(from, end, number).ec == std::errc();
}

// Not of a class that inherits from it, which may answer in its own way. Types of a program and of
// the library are the same object each; if they should not be, the store is asked for a copy.
template <class Store>
bool is_exactly(CFG_Services& store) {
  return &typeid(store) == &typeid(Store);
}

// The text that GetValue gives: in place where the store is a tree in memory, as making a copy
// takes half as long as reading a number from it; else `copy`.
std::string_view text_at(CFG_Services& store, const RWCString& path,
                         std::optional<RWCString>& copy) {
  if (is_exactly<CFG_SubTree>(store)) return static_cast<CFG_SubTree&>(store).TextAt(path);
  if (is_exactly<CFG_MemoryRepository>(store)) {
    return static_cast<CFG_MemoryRepository&>(store).TextAt(path);
  }
  if (is_exactly<CFG_FileRepository>(store)) {
    return static_cast<CFG_FileRepository&>(store).TextAt(path);
  }
  return copy.emplace(store.GetValue(path));
}

// The typed getters. False when there is no such value.

inline bool read_integer(CFG_Services& store, const RWCString& path, int& number) {
  std::optional<RWCString> copy;
  const std::string_view text = text_at(store, path, copy);
  if (text.empty()) {
    return logger.reject_at(
        LOG_LEVEL_TRACE, false,
        "GetIntegerValue(const RWCString path) : path %s does not exist, return NULL\n", path);
  }
  if (read_leading_integer(text, number) && (number != 0 || text == "0")) return true;
  return logger.reject(
      false,
      "GetIntegerValue(const RWCString path) : path %s does not represent an int, return NULL\n",
      path);
}

inline bool read_boolean(CFG_Services& store, const RWCString& path, bool& answer) {
  std::optional<RWCString> copy;
  const std::string_view text = text_at(store, path, copy);
  if (text.empty()) {
    return logger.reject_at(
        LOG_LEVEL_TRACE, false,
        "GetBooleanValue(const RWCString path) : path %s does not exist, return NULL\n", path);
  }
  answer = is_true(text);
  return true;
}

// Inline, so that the number is made in registers: it shows.
[[gnu::always_inline]] inline double read_double(CFG_Services& store, const RWCString& path,
                                                 double default_value) {
  std::optional<RWCString> copy;
  const std::string_view text = text_at(store, path, copy);
  return text.empty() ? default_value : I18n_DecimalConvertUtils::AnyLocaleStrToDouble(text);
}

}  // namespace

// --- search rules ----------------------------------------------------------------------------

int CFG_ServicesImp::CheckSearchRule(const char* caller, const RWCString& path,
                                     const char** search_rule, int search_num) {
  if (search_num <= 0) {
    return logger.reject(FALSE, "%s for path <%s>: search_num must be more then 0 , return NULL\n",
                         caller, path);
  }
  if (!search_rule) {
    return logger.reject(FALSE, "%s for path <%s>: search_rule is NULL , return NULL\n", caller,
                         path);
  }
  return TRUE;
}

Tree_ValueAndPath* CFG_ServicesImp::GetValue(RWCString name, const char** search_rule,
                                             int search_num) try {
  constexpr char op[] = "GetValue(const RWCString name,const char ** search_rule,int search_num)";
  if (name.isNull()) {
    return logger.reject(nullptr, "%s : value_name is an empty string , return NULL\n", op);
  }
  Tree_ValueAndPath* found = nullptr;
  const cfg::rule_read asked{logger, op, name, search_rule, search_num};
  const bool is_valid =
      asked.each_candidate([&](const RWCString& candidate, const RWCString& prefix) {
        const RWCString text = GetValue(candidate);
        if (!text.isNull()) found = new Tree_ValueAndPath(prefix, text);
        return found != nullptr;
      });
  if (found || !is_valid) return found;
  return logger.reject_at(LOG_LEVEL_TRACE, nullptr, "%s : value not found , return NULL\n", op);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

CFG_SubTree* CFG_ServicesImp::GetSubTree(RWCString name, const char** search_rule, int search_num) {
  constexpr char op[] = "GetSubTree(const RWCString name,const char ** search_rule,int search_num)";
  return cfg::first_found({logger, op, name, search_rule, search_num},
                          [this](const RWCString& candidate) { return GetSubTree(candidate); });
}

CFG_SubTree* CFG_ServicesImp::GetSubTree(RWCString name, const char** search_rule, int merge,
                                         int search_num) {
  if (!merge) return GetSubTree(name, search_rule, search_num);
  constexpr char op[] =
      "GetSubTree(const RWCString name,const char ** search_rule,T_Bool merge,int search_num)";
  return cfg::all_found(
      {logger, op, name, search_rule, search_num},
      [this](const RWCString& candidate) { return GetTreeNode(candidate); }, Tree_Node::Merge);
}

// --- values ------------------------------------------------------------------------------------

RWCString CFG_ServicesImp::GetValue(RWCString path, RWCString default_value) try {
  RWCString text = GetValue(path);
  if (text.isNull()) return default_value;
  return text;
} catch (...) {
  return cfg::answered(logger, RWCString());
}

int* CFG_ServicesImp::GetIntegerValue(RWCString path) try {
  int number;
  return read_integer(*this, path, number) ? new int(number) : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

int* CFG_ServicesImp::GetIntegerValue(RWCString path, int default_value) try {
  int* number = GetIntegerValue(std::move(path));
  return number ? number : new int(default_value);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

int CFG_ServicesImp::GetIntegerValueWrapper(const RWCString& path, int default_value) try {
  int number;
  return read_integer(*this, path, number) ? number : default_value;
} catch (...) {
  return cfg::answered(logger, default_value);
}

int* CFG_ServicesImp::GetBooleanValue(RWCString path) try {
  bool answer;
  return read_boolean(*this, path, answer) ? new int(answer) : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

bool CFG_ServicesImp::GetBooleanValueWrapper(const RWCString& path, bool default_value) try {
  bool answer;
  return read_boolean(*this, path, answer) ? answer : default_value;
} catch (...) {
  return cfg::answered(logger, default_value);
}

double* CFG_ServicesImp::GetDoubleValue(RWCString path) try {
  return new double(read_double(*this, path, 0.0));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

double* CFG_ServicesImp::GetDoubleValue(RWCString path, double default_value) try {
  return new double(read_double(*this, path, default_value));
} catch (...) {
  return cfg::answered(logger, nullptr);
}

double CFG_ServicesImp::GetDoubleValueWrapper(const RWCString& path, double default_value) try {
  return read_double(*this, path, default_value);
} catch (...) {
  return cfg::answered(logger, default_value);
}

int CFG_ServicesImp::SetIntegerValue(RWCString path, int value) try {
  return SetValue(path, RWCString(std::to_string(value)));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::SetDoubleValue(RWCString path, double value) try {
  return SetValue(path, I18n_ConvertUtils::Double2DicomLocaleStrNum(value, 3));
} catch (...) {
  return cfg::answered(logger, FALSE);
}

String_Arr* CFG_ServicesImp::Search(RWCString name, RWCString path) try {
  const RWCString actual_name = change_string_with_properties(name);
  const RWCString actual_path = change_string_with_properties(path);
  if (actual_name.isNull()) {
    return logger.reject(
        nullptr,
        "Search(const RWCString _name,const RWCString _path)\n : name is ampty string, return NULL");
  }
  const cfg::stored_paths as_stored;
  return SearchKeyOrValueName(actual_name, actual_path);
} catch (...) {
  return cfg::answered(logger, nullptr);
}

int CFG_ServicesImp::SetKeyName(RWCString path, RWCString key_name) try {
  const RWCString actual_name = change_string_with_properties(key_name);
  if (actual_name.isNull()) {
    return logger.reject(
        FALSE,
        "SetKeyName(const RWCString _path,const RWCString _key_name) : key_name is an empty string,return FALSE\n");
  }
  if (!cfg::fault_of_name(actual_name) && !IsValidPath(actual_name, "SetKeyName")) return FALSE;
  const RWCString actual_path = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  return SetOrRanameKeyName(actual_path, actual_name);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::SynchronizeSubTree(String_Arr*, const RWCString&) { return TRUE; }

// --- properties ----------------------------------------------------------------------------------

int CFG_ServicesImp::SetProperty(RWCString property_name, RWCString property_value) try {
  constexpr char op[] = "SetProperty(const RWCString property_name,const RWCString property_value)";
  if (property_name.isNull()) {
    return logger.reject(FALSE, "%s : property_name is empty string,return FALSE\n", op);
  }
  if (property_value.isNull()) {
    return logger.reject(FALSE, "%s : property_value is empty string,return FALSE\n", op);
  }
  std::string_view before;
  try {
    before = cfg::PropertiesWrapper::of_process().set(property_name, property_value);
  } catch (const std::bad_alloc&) {
    return logger.reject(FALSE, "Could Not Set Property !!  \n");
  }
  if (!before.empty()) logger.trace("property exist with the another value %s\n", before);
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

RWCString CFG_ServicesImp::GetProperty(RWCString property_name) try {
  if (property_name.isNull()) {
    return logger.reject(
        RWCString(),
        "GetProperty(const RWCString property_name)\n : property_name is an empty string, return empty string\n");
  }
  return cfg::PropertiesWrapper::of_process().find(property_name);
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_ServicesImp::change_string_with_properties(const RWCString& text) {
  return cfg::actual_path(text).copy();
}

void CFG_ServicesImp::tolower(RWCString& text) {
  std::string lowered = text.str();
  cfg::to_lower(lowered);
  text = std::move(lowered);
}

int CFG_ServicesImp::IsMappingExist() try {
  const RWCString mapping = GetProperty("mapping");
  return mapping.isNull() || is_equal_ignoring_case(mapping, "exist");
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::IsItServer() try {
  return is_equal_ignoring_case(GetProperty("client_or_server").str(), "server");
} catch (...) {
  return cfg::answered(logger, FALSE);
}

RWCString CFG_ServicesImp::GetLocalHostIP() try {
  return GetProperty("local_host_ip");
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_ServicesImp::GetLocalHostName() try {
  return GetProperty("current_node");
} catch (...) {
  return cfg::answered(logger, RWCString());
}
RWCString CFG_ServicesImp::GetIPv6HostIP() { return RWCString(); }

Tmr_ValHashMap<RWCString, RWCString, Tmr_DefaultHash<RWCString>>& CFG_ServicesImp::prop() {
  static Tmr_ValHashMap<RWCString, RWCString, Tmr_DefaultHash<RWCString>> map(1024);
  return map;
}

void CFG_ServicesImp::SetMonitorConnSupport(const RWCString& mode) {
  monitor_mode = mode == "log" ? 1 : mode == "stack" ? 2 : mode == "exit" ? 3 : 0;
}
void CFG_ServicesImp::SetMonitorConnActive(bool active) { monitor_active = active; }
int CFG_ServicesImp::GetMonitorConnStatus() { return monitor_active ? monitor_mode.load() : 0; }

// --- path validation -----------------------------------------------------------------------------

int CFG_ServicesImp::IsValidPath(const RWCString& path, const char* caller) try {
  return !cfg::is_path_validation_on() || cfg::is_well_formed(path, caller);
} catch (...) {
  return cfg::answered(logger, FALSE);
}

void CFG_ServicesImp::InitValidatePathProperties() try {
  const RWCString text =
      GetValue("halvoria\\system\\applications\\central_configuration\\validate_path");
  const bool is_off = text.view().substr(0, 1) == "0" || is_equal_ignoring_case(text, "false");
  cfg::set_path_validation(!is_off);
} catch (...) {
  cfg::log_exception(logger, __func__);
}

// --- subtree writes ------------------------------------------------------------------------------

int CFG_ServicesImp::IsSubTreeValidWithLog(const char* caller, CFG_SubTree* sub_tree,
                                           const RWCString& path, Tree_NodePtr& data,
                                           RWCString& key_name) {
  if (!sub_tree) {
    return logger.reject(FALSE, "%s  for path <%s>: sub_tree is NULL, return FALSE\n", caller,
                         path);
  }
  const Tree_NodePtr root = sub_tree->GetData();
  if (!root) {
    return logger.reject(FALSE, "%s  for path <%s>, sub_tree data is null, return FALSE\n", caller,
                         path);
  }
  if (root->NameView().empty()) {
    return logger.reject(FALSE, "%s : sub_tree key name is null, return FALSE\n", caller);
  }
  data = root;
  key_name = root->GetKeyName();
  return TRUE;
}

int CFG_ServicesImp::AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path,
                                         int merge) try {
  constexpr char op[] = "AddOrReplaceSubTree with merge";
  logger.info("Start %s for path <%s> merge (%d)\n", op, path, merge);
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  if (!merge) return AddOrReplaceSubTree(sub_tree, actual);
  if (!IsValidPath(actual, op)) return FALSE;
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  Tree_NodePtr written =
      cfg::merged_with_stored(logger, op, *this, data, actual, cfg::Winner::GIVEN);
  return written ? WriteSubTree(written, actual) : FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::AddMoreInfoToSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  constexpr char op[] =
      "CFG_ServicesImp::AddMoreInfoToSubTree(CFG_SubTree * sub_tree,const RWCString & path)";
  logger.info("Start %s for path <%s>\n", op, path);
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  Tree_NodePtr written =
      cfg::merged_with_stored(logger, op, *this, data, actual, cfg::Winner::STORED);
  return written ? WriteSubTree(written, actual) : FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::SetSubTree(CFG_SubTree* sub_tree, const RWCString& path) try {
  constexpr char op[] = "SetSubTree(CFG_SubTree * sub_tree,const RWCString & path)";
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  Tree_NodePtr changes = Tree_Node::GetChangesTreeNode(data);
  if (changes) return WriteSubTree(changes, actual);
  logger.trace("%s, no changes in sub_tree, delete it\n", op);
  DeleteSubTree(cfg::join(actual, key_name));
  return FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_ServicesImp::SetSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) try {
  if (!merge) return SetSubTree(sub_tree, path);
  constexpr char op[] = "SetSubTree(CFG_SubTree * sub_tree,const RWCString & path,T_Bool merge)";
  Tree_NodePtr data;
  RWCString key_name;
  if (!IsSubTreeValidWithLog(op, sub_tree, path, data, key_name)) return FALSE;
  const Tree_NodePtr changes = Tree_Node::GetChangesTreeNode(data);
  if (!changes) {
    return logger.reject_at(LOG_LEVEL_TRACE, TRUE, "%s : no change is given sub tree, return\n",
                            op);
  }
  const RWCString actual = change_string_with_properties(path);
  const cfg::stored_paths as_stored;
  Tree_NodePtr written =
      cfg::merged_with_stored(logger, op, *this, changes, actual, cfg::Winner::GIVEN);
  return written ? WriteSubTree(written, actual) : FALSE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// --- blobs ----------------------------------------------------------------------------------

bool CFG_ServicesImp::WriteBlobFromBuffer(const char* path, char* buffer, int length, bool base64,
                                          RWCString encoding) try {
  constexpr char op[] = "WriteBlobFromBuffer";
  if (length < 0 || (length > 0 && !buffer)) {
    return logger.reject(false, "%s : path <%s>, buffer of %d bytes is not valid, return FALSE\n",
                         op, path, length);
  }
  const RWCString actual = change_string_with_properties(RWCString(path));
  const cfg::stored_paths as_stored;
  const cfg::split_path where(actual);
  const RWCString text = base64 ? Tmr_Base64Utils::Encode(buffer, length, false)
                                : RWCString(buffer, static_cast<size_t>(length));

  const Tree_NodePtr key = new Tree_Node(where.has_parent ? where.name : std::string_view());
  std::string_view rest = text;
  int chunks = 0;
  while (!rest.empty()) {
    const std::string_view chunk = cfg::first_chunk(rest, !base64);
    key->Add(new Tree_Node(cfg::chunk_name(chunks++), chunk, 1));
    rest.remove_prefix(chunk.size());
  }
  key->Add(new Tree_Node(cfg::blob_description_name,
                         cfg::blob_description::text(base64, encoding, chunks), 1));
  CFG_SubTree blob(key);
  return AddOrReplaceSubTree(&blob, RWCString(where.parent), FALSE);
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::WriteBlobFromUTF8String(const char* path, RWCString text, bool base64,
                                              RWCString encoding) try {
  return WriteBlobFromBuffer(path, text.data(), static_cast<int>(text.length()), base64, encoding);
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::read_chunks(const char* path, RWCString& text, bool& base64,
                                  RWCString* encoding) {
  text.clear();
  base64 = false;
  const SubTreePtr blob(cfg::read_exactly(*this, RWCString(path)));
  if (!blob)
    return logger.reject_at(LOG_LEVEL_WARNING, false, "Subtree not found at path [%s]\n", path);
  // From the nodes: a chunk that cannot be read for want of memory must not pass for a missing one.
  const Tree_NodePtr key = blob->GetData();
  const auto text_of = [&key](std::string_view name) {
    const Tree_Node* value = key->Child(name);
    return value ? value->GetText() : std::string_view();
  };
  const RWCString described = text_of(cfg::blob_description_name);
  if (encoding) *encoding = described;
  const auto values = static_cast<int>(key->Children()->count(Tree_ChildList::VALUES));
  const cfg::blob_description description(described, values);
  base64 = description.base64;
  for (int i = 0; i < description.chunks; ++i) {
    const RWCString name = cfg::chunk_name(i);
    const std::string_view chunk = text_of(name);
    if (chunk.empty()) {
      return logger.reject(
          false, "read_chunks: %s is empty, path is %s. Using only existing chunks read so far.\n",
          name, path);
    }
    text += chunk;
  }
  return true;
}

bool CFG_ServicesImp::ReadBlobToUTF8String(const char* path, RWCString& out,
                                           RWCString* encoding) try {
  bool base64;
  if (!read_chunks(path, out, base64, encoding)) return false;
  if (!base64 || out.isNull()) return true;
  int length = 0;
  const std::unique_ptr<char[]> bytes(Tmr_Base64Utils::Decode(out, &length, true));
  out = RWCString(bytes ? bytes.get() : "", static_cast<size_t>(bytes ? length : 0));
  return bytes != nullptr;
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::ReadBlobToBuffer(const char* path, char** buffer, int& length,
                                       RWCString* encoding) try {
  *buffer = nullptr;
  length = 0;
  RWCString text;
  bool base64;
  if (!read_chunks(path, text, base64, encoding)) return false;
  if (base64) {
    std::unique_ptr<char[]> bytes(Tmr_Base64Utils::Decode(text, &length, true));
    if (!bytes || length == 0) return false;
    *buffer = bytes.release();
    return true;
  }
  if (text.length() > longest_blob) {
    return logger.reject(false,
                         "ReadBlobToBuffer : blob at path <%s> has %Iu bytes, return FALSE\n", path,
                         text.length());
  }
  length = static_cast<int>(text.length());
  *buffer = new char[text.length() + 1];
  std::memcpy(*buffer, text.data(), text.length() + 1);
  return true;
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::ReadBlobFromSearchPathsToBuffer(const char* name, const char** search_rule,
                                                      int search_num, char** buffer, int& length,
                                                      RWCString* encoding) try {
  *buffer = nullptr;
  length = 0;
  const RWCString key(name);
  if (!CheckSearchRule(__func__, key, search_rule, search_num)) return false;
  std::vector<const char*> exact;  // what would be taken for a pattern names no blob
  for (int i = 0; i < search_num; ++i) {
    const RWCString prefix(search_rule[i]);
    if (cfg::is_read_exactly(*this, cfg::join(prefix, key))) exact.push_back(search_rule[i]);
  }
  if (exact.empty()) return false;
  const SubTreePtr found(GetSubTree(key, exact.data(), FALSE, static_cast<int>(exact.size())));
  return found && found->ReadBlobToBuffer("", buffer, length, encoding);
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::WriteBlobFromFile(const char* path, char* file_name, bool base64) try {
  std::string bytes;
  RWCString error("no file name");
  if (!file_name ||
      !Sys_File::ReadWhole(RWWString::fromUTF8(file_name), bytes, longest_blob, error)) {
    return logger.reject(false, "WriteBlobFromFile : path <%s>, %s, return FALSE\n", path, error);
  }
  return WriteBlobFromBuffer(path, bytes.data(), static_cast<int>(bytes.size()), base64,
                             RWCString());
} catch (...) {
  return cfg::answered(logger, false);
}

// --- network addresses -------------------------------------------------------------------------

bool CFG_ServicesImp::RemoveIpv6Braces(RWCString& address) try {
  constexpr size_t longest = 99;  // no address has more; such a text is left as it is
  std::string_view inner = address;
  if (inner.substr(0, 1) != "[") return false;
  inner.remove_prefix(1);
  if (!inner.empty() && inner.back() == ']') inner.remove_suffix(1);
  if (inner.size() > longest) return false;
  address = RWCString(inner);
  return true;
} catch (...) {
  return cfg::answered(logger, false);
}

bool CFG_ServicesImp::handle_if_ipv6_mapped(RWCString& address) try {
  constexpr char prefix[] = "::ffff:";
  constexpr size_t length = sizeof prefix - 1;
  if (!is_equal_ignoring_case(address.subString(0, length).str(), prefix)) return false;
  address.remove(0, length);
  return true;
} catch (...) {
  return cfg::answered(logger, false);
}

RWCString CFG_ServicesImp::GetINetAddress(RWCString node_name) try {
  const SubTreePtr properties(GetSubTree("halvoria\\system\\nodes\\" + node_name + "\\properties"));
  return properties ? properties->GetINetAddressFromPath("") : RWCString();
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_ServicesImp::GetINetAddressFromPath(RWCString path) try {
  const auto value = [&](const char* name) { return GetValue(cfg::join(path, name)); };
  RWCString address = value("inet_address");
  RWCString optional = value("inet_address_optional");
  if (!optional.isNull() && is_equal_ignoring_case(value("preferred_address").str(), "optional")) {
    std::swap(address, optional);
  }
  const RWCString local = GetProperty("LocalHostListenersAF");
  const RWCString family = Tmr_SocketWrapper::GetAFTypeIfSupported(address);
  logger.info("local host address family is [%s]\n", local);
  logger.info("remote server's preferred ip and address family are [%s][%s]\n", address, family);

  const bool is_dual = local == Tmr_SocketWrapper::IP_TYPE_DUAL;
  if (!family.isNull() && (is_dual || is_equal_ignoring_case(family, local))) return address;
  if (optional.isNull()) {
    return logger.reject(
        address,
        "Inet Address [%s] is not supported by server's configuration and no other IP given; connect will probably fail\n",
        address);
  }
  const RWCString other = Tmr_SocketWrapper::GetAFTypeIfSupported(optional);
  if (!other.isNull() && (other == local || is_dual)) {
    return logger.reject_at(
        LOG_LEVEL_INFORMATION, optional,
        "IP Address [%s] is not supported by server's configuration; [%s] selected instead\n",
        address, optional);
  }
  return logger.reject(
      address,
      "IP Address [%s] is not supported by server's configuration; nor does [%s] keeping the first\n",
      address, optional);
} catch (...) {
  return cfg::answered(logger, RWCString());
}
