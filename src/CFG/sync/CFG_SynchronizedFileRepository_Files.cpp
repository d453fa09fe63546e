// Connecting, and the files: what is read from them, when it is of use, how it is saved.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <shared_mutex>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/overlapping_changes.h>
#include <CFG/sync/file_cipher.h>
#include <CFG/sync/log_times.h>
#include <CFG/sync/sync_state.h>
#include <SECM/SECM_crypt.h>
#include <connection/Conn_PingClient.h>
#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <system/Sys_FileSearch.h>
#include <system/Sys_Registry.h>
#include <tree/Tree_Node.h>
#include <utility/Tmr_FileSystemUtils.h>
#include <utility/Tmr_System.h>
#include <utility/Tmr_Version.h>

using cfg::synced_file;
using Header = cfg::Synced_Cfg_File_Header;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SynchronizedFileRepository", 502);

constexpr char USERS[] = "users";
constexpr wchar_t USER_FILE[] = L"tvk_user_cfg_";
constexpr size_t kLongestUser = 30;
constexpr int64_t kMostDays = 60;

// Whether a file can be named by it, in this folder and no other.
bool is_for_file_names(const RWCString& user) {
  const std::string_view name = user.view();
  return !name.empty() && name.size() <= kLongestUser && name.find_first_of("/\\") == name.npos &&
         name.find_first_not_of('.') != name.npos;
}

RWWString temporary_folder() {
  RWCString folder;
  if (Sys_Environment::Get("TEMP", folder) && !folder.isNull()) return RWWString::fromUTF8(folder);
  std::error_code none;
  const auto system = std::filesystem::temp_directory_path(none);
  return RWWString::fromUTF8(RWCString(none ? "/tmp" : system.string()));
}

bool ends_in(std::string_view text, std::string_view end) {
  return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

}  // namespace

// --- where and how -------------------------------------------------------------------------------

void CFG_SynchronizedFileRepository::set_synced_files_path() {
  RWCString value;
  m_is_encrypted = Sys_Registry::GetValue("HKEY_LOCAL_MACHINE\\SOFTWARE\\Kestral\\install",
                                          "base_setup_type", value);
  if (m_file.isNull()) return;
  const std::wstring_view given = m_file.view();
  const size_t cut = given.find_last_of(L"\\/");
  if (cut == given.npos) {
    m_folder = Tmr_System::GetWorkPath("CFG.dll");
  } else {
    m_folder = RWWString(std::wstring(given.substr(0, std::max<size_t>(cut, 1))).c_str());
    m_file = RWWString(std::wstring(given.substr(cut + 1)).c_str());
  }
  bool is_read_only = false;
  const bool is_checked = Tmr_FileSystemUtils::GetReadOnly(m_folder, is_read_only);
  if (!is_checked) {
    logger.error(
        "Failed to check permissions for folder %S. Redirecting synced files to temp folder",
        m_folder);
  } else if (is_read_only) {
    logger.error("No write permissions for folder %S. Redirecting synced files to temp folder",
                 m_folder);
  }
  if (!is_checked || is_read_only) m_folder = temporary_folder();
}

RWWString CFG_SynchronizedFileRepository::get_full_file_path(bool user) const {
  RWWString path = m_folder;
  path += L"\\";
  if (user)
    path = path + RWWString(USER_FILE) + RWWString::fromUTF8(m_current_user) + RWWString(L"_");
  return path + m_file;
}

void CFG_SynchronizedFileRepository::set_sync_status(int status, const char* why) {
  m_sync_status |= status;
  logger.trace("sync status %d: %s\n", m_sync_status.load(), why);
}

// --- connecting ----------------------------------------------------------------------------------

int CFG_SynchronizedFileRepository::Connect() try {
  logger.info("Start Connect()\n");
  const MutexGuard once(m_connect_lock);
  if (m_connected) {
    return logger.reject_at(LOG_LEVEL_TRACE, TRUE, "Connect() : allready connected\n");
  }
  m_generation = ForkHandler::Generation();
  m_connect_began = std::chrono::steady_clock::now();
  m_is_connecting = true;
  connect_server_repository();
  if (!m_main_synchronizer->start()) {
    m_is_connecting = false;
    return logger.reject(FALSE, "Connect() : no thread for the synchronizer, return FALSE\n");
  }
  logger.info("Starting the synchronizer\n");
  load_system_file();
  {
    const RecursiveThreadMutexWrapper::WriteGuard guard(m_connection_lock);
    m_is_connected = true;
  }
  m_connected = true;
  m_local_tree_joiner.Signal();
  logger.info("connect: local file handling finished\n");
  bool has_user = false;
  {
    const MutexGuard guard(m_state_lock);
    has_user = !m_current_user.isNull();
  }
  if (has_user) start_user_phase();
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

void CFG_SynchronizedFileRepository::connect_server_repository() {
  const RWCString user = GetProperty("CurrUser"), application = GetProperty("CurrApp");
  logger.info("Creating configuration with the following properties:\n");
  logger.info("* Remote Server: Name / PORT : %s / %s\n",
              GetProperty("HALVORIA_REMOTE_SERVER_NAME"),
              GetProperty("HALVORIA_REMOTE_SERVER_PORT"));
  logger.info("* Local Host: Name / IP: %s / %s\n", GetProperty("current_node"),
              GetProperty("local_host_ip"));
  if (m_work_compressed) logger.detail("* Compress transfered data: true\n");
  m_server.SetWorkCompressed(m_work_compressed);
  m_server.Connect();
  // Which names them anew; who was named before is meant.
  if (!user.isNull()) m_server.SetProperty("CurrUser", user);
  if (!application.isNull()) m_server.SetProperty("CurrApp", application);
}

// Whether the service is of a version that has one.
bool CFG_SynchronizedFileRepository::has_sync_id() {
  const RWCString server = GetProperty("HALVORIA_REMOTE_SERVER_NAME");
  const int port = std::atoi(GetProperty("HALVORIA_REMOTE_SERVER_PORT").data());
  const RWCString words = GetProperty("HALVORIA_CONNECTION_PROPERTIES");
  const int token = words.view().find("connssl") == std::string_view::npos
                        ? Conn_SyncConnector::TOKEN_PLAIN
                        : Conn_SyncConnector::TOKEN_TLS;
  Conn_ServerPingStatus status;
  const bool is_known =
      Conn_PingClient::GetServerPingStatus(server, port, status) ||
      Conn_PingClient::PingServer(server, port, GetProperty("HALVORIA_CONNECTION_TYPE"), token,
                                  status) == 0;
  if (!is_known) cfg::failure_watch::note();
  return is_known && status.GetServerGeneralVersion() >= Tmr_Version(11, 4, 1, 0);
}

// Who the service is; false when it does not answer.
bool CFG_SynchronizedFileRepository::read_server_state() {
  const cfg::failure_watch reads;
  const RWCString count = m_server.GetValue(CFG_SERVER_RESET_COUNT);
  const bool is_literal = GetProperty("HALVORIA_OFFLINE_START") == "no";
  if (reads.has_failed() && !is_literal) return false;
  m_server_reset_count = static_cast<uint32_t>(std::strtoul(count.data(), nullptr, 10));
  if (!count.isNull()) logger.info("Server Reset count ID %d\n", m_server_reset_count);
  if (has_sync_id()) m_server_sync_id = m_server.GetServerSyncID();
  if (reads.has_failed() && !is_literal) return false;
  m_is_server_known = true;
  return true;
}

void CFG_SynchronizedFileRepository::start_user_phase() {
  logger.trace("A user name was received\n");
  if (m_user_phase_started.exchange(true)) return;
  if (!m_user_synchronizer->start()) logger.error("no thread for the user's synchronizer\n");
}

void CFG_SynchronizedFileRepository::load_system_file() {
  if (!m_file.isNull()) m_system->file.emplace(get_full_file_path(false));
  Tree_NodePtr tree;
  try {
    if (m_system->file) tree = load_tree(*m_system);
  } catch (...) {
    cfg::log_exception(logger, "Connect");
  }
  m_system->is_loaded = static_cast<bool>(tree);
  if (tree) {
    logger.trace("Connect(): Succeeded to get the initial tree from the file\n");
    set_sync_status(SYSTEM_LOADED, "the file is loaded");
    tree->SetVirtualParentPath("");
  }
  auto loaded =
      tree ? std::make_unique<CFG_SubTree>(tree) : std::make_unique<CFG_SubTree>("halvoria");
  {
    const std::unique_lock<ReadMostlyLock> lock(*m_tree_lock);
    m_sub_tree = std::move(loaded);
  }
  m_system->header_ready.signal();
}

// On the user's synchronizer's thread, once the main one let readers go.
void CFG_SynchronizedFileRepository::load_user_file() {
  Half& half = *m_user;
  while (!m_system->joiner.Wait(std::chrono::milliseconds(100))) {
    if (!pause(std::chrono::milliseconds(0))) return;
  }
  logger.trace("Main sync is done - starting the user synchronizer\n");
  {
    const MutexGuard guard(m_state_lock);
    if (!m_file.isNull() && !is_for_file_names(m_current_user)) {
      logger.error("user id <%s> names no file of at most %Iu bytes: its branch has none\n",
                   m_current_user, kLongestUser);
    } else if (!m_file.isNull()) {
      half.file.emplace(get_full_file_path(true));
    }
  }
  Tree_NodePtr tree;
  if (half.file) tree = load_tree(half);
  if (tree) {
    const std::unique_lock<ReadMostlyLock> lock(*m_tree_lock);
    const Tree_NodePtr root = m_sub_tree->GetData();
    if (const Tree_NodePtr there = root->Find(USERS)) {  // written meanwhile
      tree = Tree_Node::Merge(tree, there);
      root->Remove(there);
    }
    half.is_loaded = root->Add(tree);
  } else if (half.file) {
    logger.warning("User file not found, running full sync for user %s \n",
                   GetProperty("CurrUser"));
  }
  set_sync_status(half.is_loaded ? USER_LOADED : FULL_USER_SYNC, "the user's file");
  half.header_ready.signal();
}

Tree_NodePtr CFG_SynchronizedFileRepository::load_tree(Half& half) {
  for (const auto generation : {synced_file::NEWEST, synced_file::OLD}) {
    if (Tree_NodePtr tree = load_generation(half, generation)) {
      if (generation == synced_file::OLD) {
        logger.warning("%S is used, the generation before\n", half.file->name(generation));
      }
      return tree;
    }
    if (half.is_useless) break;
  }
  const MutexGuard guard(m_state_lock);
  half.header.reset();
  return nullptr;
}

Tree_NodePtr CFG_SynchronizedFileRepository::load_generation(Half& half, int number) {
  const auto generation = static_cast<synced_file::Generation>(number);
  const cfg::timed_line time(logger);
  synced_file::Reader file(*half.file, generation);
  logger.info("start file header read for %s\n", half.lower_kind());
  bool is_usable = file.open();
  if (!is_usable && file.is_missing()) {
    if (!half.is_user && generation == synced_file::NEWEST) {
      logger.info(
          "Unable to open the local configuration file %S full synchronization will be performed\n",
          file.name());
    }
    return nullptr;
  }
  if (is_usable) {
    time.write("Reading \"%s\" file header took %f milliseconds", RWCString(half.kind()));
    if (!CheckVersionMatch(file.header())) return nullptr;
    const char type = m_is_encrypted ? Header::ENCRYPTED : Header::PLAIN;
    if (file.header().file_type != type) {
      logger.info("Performing full sync due to invlaid file type\n");
      return nullptr;
    }
    if (half.is_user && file.header().user_id != m_current_user) {
      logger.info("Performing user full sync of user %s due to user change (previous user - %s)\n",
                  m_current_user, file.header().user_id);
      return nullptr;
    }
    {
      const MutexGuard guard(m_state_lock);
      half.header = file.header();
      half.header_bytes = file.header_bytes();
      half.identity = file.identity();
      half.written = file.written();
      half.is_newest = generation == synced_file::NEWEST;
    }
    half.header_ready.signal();
    if (half.is_useless) return nullptr;
    logger.info("start file DATA read for %s\n", half.lower_kind());
    std::unique_ptr<char[]> bytes;
    is_usable = file.read_data(bytes);
    if (is_usable) {
      logger.info("Finished reading buffer to memory\n");
      time.write("Reading \"%s\" file took %f milliseconds", RWCString(half.kind()));
      logger.info("Finish File DATA read\n");
      if (Tree_NodePtr tree = read_file_data(half, bytes.get(), file.data_length())) {
        time.write("Reading \"%s\" file AND import into memory structures took %f milliseconds",
                   RWCString(half.kind()));
        return tree;
      }
    } else {
      logger.warning("<%S>: %s\n", file.name(), file.error());
    }
  } else {
    logger.warning("<%S>: %s\n", file.name(), file.error());
  }
  logger.warning("local cache file <%S> not usable. Delete it and Do full synch \n", file.name());
  const int error = half.file->remove(generation, file.identity());
  if (error != 0 && half.is_user) {
    logger.warning(
        "failed to delete local file , may be another process holds it? may need to delete it manually  \n");
  } else if (error != 0) {
    logger.warning(
        "failed to delete local file , maybe another process holds it? may need to delete it manually  ERR %u\n",
        error);
  }
  return nullptr;
}

Tree_NodePtr CFG_SynchronizedFileRepository::read_file_data(Half& half, const char* bytes,
                                                            size_t length) {
  const cfg::timed_line time(logger);
  std::vector<unsigned char> opened;
  if (m_is_encrypted) {
    if (!m_cipher->decrypt(reinterpret_cast<const unsigned char*>(bytes),
                           static_cast<unsigned>(length), opened, true)) {
      return logger.reject(Tree_NodePtr(), "Failed parsing data in %s!\n", half.kind());
    }
    bytes = reinterpret_cast<const char*>(opened.data());
    length = opened.size();
  }
  time.write("Pre processing step took %f milliseconds");
  const std::unique_ptr<CFG_SubTree> sub_tree(
      CreateSubTreeFromByteArray(bytes, static_cast<int>(length), true, RWCString(), true));
  logger.info("Finish file DATA convert to inner format \n");
  if (!sub_tree) return nullptr;
  Tree_NodePtr tree = sub_tree->GetData();
  const std::string_view name = half.is_user ? USERS : "halvoria";
  return tree->NameView() == name && !tree->IsLeaf() ? tree : Tree_NodePtr();
}

CFG_SubTree* CFG_SynchronizedFileRepository::ReadFile(const RWWString& name, FileFacts& facts,
                                                      RWCString& error) try {
  const synced_file file(name);
  synced_file::Reader reader(file, synced_file::NEWEST);
  std::unique_ptr<char[]> data;
  const bool is_open = reader.open_as_is();
  const Header& header = reader.header();
  facts = {header.sync_id,
           header.user_id,
           header.sequence,
           header.reset_count,
           header.format_version,
           header.product_version,
           header.file_type == Header::ENCRYPTED,
           reader.has_sums(),
           is_open ? reader.written() : 0};
  if (!is_open || !reader.read_data(data)) {
    error = reader.error();
    return nullptr;
  }
  if (header.magic != Header::MAGIC || header.format_number() != Header::FORMAT_VERSION) {
    error = "its format is not known: " + header.magic + " " + header.format_version;
    return nullptr;
  }
  const char* bytes = data.get();
  size_t length = reader.data_length();
  std::vector<unsigned char> opened;
  if (facts.is_encrypted) {
    if (!cfg::made_file_cipher()->decrypt(reinterpret_cast<const unsigned char*>(bytes),
                                          static_cast<unsigned>(length), opened, true)) {
      error = "it cannot be decrypted: it was written by another computer, or is damaged";
      return nullptr;
    }
    bytes = reinterpret_cast<const char*>(opened.data());
    length = opened.size();
  }
  CFG_SubTree* const tree =
      CreateSubTreeFromByteArray(bytes, static_cast<int>(length), true, RWCString(), false);
  if (!tree) error = "its data is no whole tree";
  if (tree && tree->GetData()->NameView() == USERS) {
    tree->GetData()->SetVirtualParentPath("halvoria");
  }
  return tree;
} catch (...) {
  error = "it cannot be read";
  return cfg::answered(logger, nullptr);
}

// --- whether a file is of use --------------------------------------------------------------------

bool CFG_SynchronizedFileRepository::CheckVersionMatch(const Header& header) {
  const int number = header.format_number();
  if (header.magic != Header::MAGIC) {
    logger.info("Synced File is from an older version, current version is %s\n",
                Header::PRODUCT_VERSION);
  } else if (number < Header::FORMAT_VERSION) {
    logger.info("Synced File is from an older version %s, current version is %d\n",
                header.format_version, Header::FORMAT_VERSION);
  } else if (number > Header::FORMAT_VERSION) {
    logger.info("Synced File is from a newer version %s, current version is %d\n",
                header.format_version, Header::FORMAT_VERSION);
  } else {
    return true;
  }
  logger.info("Full synchronization will be performed\n");
  return false;
}

// Whether all must be fetched, by what the header says and the service; false when the service did
// not answer. The file's type, and the user, were looked at when it was opened.
bool CFG_SynchronizedFileRepository::CheckNeedFullSync(Half& half) {
  const RWCString server = GetProperty("HALVORIA_REMOTE_SERVER_NAME");
  std::optional<Header> header;
  {
    const MutexGuard guard(m_state_lock);
    header = half.header;
  }
  half.need_full = true;
  if (header && half.is_useless) return true;
  if (!header) {
    if (!half.is_useless.exchange(true) && !half.is_user) {
      logger.info("Full system sync will be performed");
    }
    if (!half.is_user) set_sync_status(FULL_SYSTEM_SYNC, "no usable file");
    return true;
  }
  const RWCString& current_id = m_server_sync_id.isNull() ? server : m_server_sync_id;
  RWCString server_min;
  if (header->sync_id != current_id) {
    logger.info("Performing full sync from server %s sync ID changed (old %s new %s)\n", server,
                header->sync_id, current_id);
  } else if (header->reset_count != m_server_reset_count) {
    logger.info(
        "Performaing full sync from server, A Full sync request has been made by the server (Reset count ID %d, file %d)\n",
        m_server_reset_count, header->reset_count);
  } else {
    logger.detail("Reset count ID %d, file id %d\n", m_server_reset_count, header->reset_count);
    const auto is_too_late = need_full_sync_by_sequence(header->sequence, &server_min);
    if (!is_too_late) return false;
    if (*is_too_late) {
      logger.info(
          "Performing FULL synchronization with server %s server minimal Sequence %s local file sequence %s\n",
          server, server_min, header->sequence);
    } else {
      half.need_full = false;
    }
  }
  if (half.need_full) {
    half.is_useless = true;
    set_sync_status(half.is_user ? FULL_USER_SYNC : FULL_SYSTEM_SYNC, "the service asks for it");
    return true;
  }
  logger.info(
      "Performing Partial synchronization with server %s since file sequence %s (server minimal sync sequence is %s)\n",
      server, header->sequence, server_min);
  half.file_sequence = header->sequence.isNull() ? RWCString("0") : header->sequence;
  return true;
}

std::optional<bool> CFG_SynchronizedFileRepository::need_full_sync_by_sequence(
    const RWCString& local, RWCString* server_min) {
  const cfg::failure_watch reads;
  const RWCString min = GetMinSeqNumberOfDeletedEntry();
  if (server_min) *server_min = min;
  if (reads.has_failed()) return std::nullopt;
  return cfg::compare_sequence_numbers(min, cfg::incremented_sequence_number(local)) > 0;
}

// --- saving --------------------------------------------------------------------------------------

// Whether the service may yet undo something that is in the tree. In a file it would stay: no
// later change tells of it.
bool CFG_SynchronizedFileRepository::is_in_doubt() {
  const MutexGuard guard(m_state_lock);
  return m_changes->has_updates() || !m_unsettled.empty();
}

bool CFG_SynchronizedFileRepository::save_tree_to_file(bool with_data) {
  const uint64_t updates = m_changes->begun_updates();
  if (is_in_doubt()) return false;
  if (!with_data) {
    logger.info("Synchronization file is up-to-date. no save needed only update as used\n");
  }
  if (m_file.isNull()) return true;
  if (!save_half(*m_system, with_data, updates)) return false;
  if (m_user->file && !save_half(*m_user, with_data, updates)) return false;
  for (Half* half : {m_system.get(), m_user.get()}) {
    half->file_sequence = half->current_sequence;
    half->need_full = false;
  }
  return true;
}

bool CFG_SynchronizedFileRepository::save_half(Half& half, bool with_data, uint64_t updates) {
  const cfg::timed_line time(logger);
  const RWWString& name = half.file->name();
  Header header;
  header.sync_id =
      m_server_sync_id.isNull() ? GetProperty("HALVORIA_REMOTE_SERVER_NAME") : m_server_sync_id;
  {
    const MutexGuard guard(m_state_lock);
    header.user_id = m_current_user;
  }
  header.sequence = half.current_sequence;
  header.reset_count = m_server_reset_count;
  header.file_type = m_is_encrypted ? Header::ENCRYPTED : Header::PLAIN;
  const char* misfit = "";
  const std::string bytes = header.bytes(misfit);
  if (bytes.empty()) {
    return logger.reject(true, "<%S> is not saved: %s does not fit its field\n", name, misfit);
  }
  if (half.is_user) {
    logger.info("Saving User CFG file info: Sync ID %s seq %s, Reset Count %u user ID %s\n",
                header.sync_id, header.sequence, header.reset_count, header.user_id);
  } else {
    logger.info("Saving CFG system file. info: Sync ID %s seq %s, Reset Count %u user ID %s\n",
                header.sync_id, header.sequence, header.reset_count, header.user_id);
  }

  RWCString error;
  bool is_saved = false;
  if (!with_data && half.is_loaded && half.is_newest) {
    const auto outcome = half.file->save_header(bytes, half.identity, half.header_bytes, error);
    if (outcome == synced_file::FAILED) {
      return logger.reject(true, "<%S> is not saved: %s\n", name, error);
    }
    is_saved = outcome == synced_file::DONE;
  }
  if (!is_saved) {  // or another process has replaced it
    int length = 0;
    std::unique_ptr<char[]> data;
    {
      const std::shared_lock<ReadMostlyLock> lock(*m_tree_lock);
      const Tree_NodePtr root = m_sub_tree->GetData();
      if (half.is_user) {
        Tree_NodePtr users = root->Find(USERS);
        if (!users) users = Tree_NodePtr(new Tree_Node(USERS));
        data.reset(Tree_Node::GetSerializedTreeNode(users, length, true));
      } else {
        data.reset(Tree_Node::GetSerializedTreeNodeSkipPath(root, length, true, USERS));
      }
    }
    if (m_changes->begun_updates() != updates) return false;
    if (!data) return logger.reject(true, "<%S> is not saved: its tree fits no file\n", name);
    time.write("Finished serializing \"%s\" data in %f milliseconds", RWCString(half.kind()));
    std::vector<unsigned char> sealed;
    std::string_view content(data.get(), static_cast<size_t>(length));
    if (m_is_encrypted) {
      if (!m_cipher->encrypt(reinterpret_cast<const unsigned char*>(content.data()),
                             static_cast<unsigned>(length), sealed, true)) {
        return logger.reject(true, "<%S> is not saved: it was not encrypted\n", name);
      }
      content = {reinterpret_cast<const char*>(sealed.data()), sealed.size()};
    }
    if (!half.file->save(bytes, content, error)) {
      return logger.reject(true, "<%S> is not saved: %s\n", name, error);
    }
  }
  if (half.is_user) {
    time.write("User configuration saved to file %S, took %f milliseconds including serialization",
               name);
  } else {
    time.write(
        "System configuration saved to file %S, took %f milliseconds including serialization",
        name);
  }
  return true;
}

// Companions go with their file.
uint64_t CFG_SynchronizedFileRepository::remove_users_old_files() {
  if (m_file.isNull()) return 0;
  logger.info("CFG do clean for path %S ( folder %S) \n", get_full_file_path(false), m_folder);
  std::vector<Sys_FoundFile> found;
  RWCString error;
  if (!Sys_FindFiles(m_folder, RWWString(USER_FILE) + RWWString(L"*"), found, error)) {
    logger.warning("%s\n", error);
    return 0;
  }
  uint64_t left = 0;
  const auto now = std::chrono::system_clock::now();
  for (const Sys_FoundFile& file : found) {
    const std::string name = file.name.toUTF8().str();
    if (name.find(".LOCK") != name.npos || ends_in(name, ".sum") || ends_in(name, ".old")) continue;
    const RWWString path = m_folder + RWWString(L"\\") + file.name;
    const auto age =
        std::chrono::duration_cast<std::chrono::hours>(now - file.written).count() / 24;
    const auto days = static_cast<unsigned long long>(std::max<int64_t>(age, 0));
    logger.info("user file %S is %llu days old , file size is %llu\n", path, days,
                static_cast<unsigned long long>(file.size));
    if (age <= kMostDays) {
      left += file.size;
      continue;
    }
    logger.warning("Delete user file %S which is %llu days old \n", path, days);
    const synced_file old(path);
    Tmr_LockFileGuard lock(old.companion(".LOCK"), Tmr_LockFileGuard::EXCLUSIVE);
    const int removed = lock.Lock() ? Sys_File::Remove(path) : EAGAIN;
    if (removed != 0) {
      logger.warning(
          "Failed to remove user old file %S, may need to remove it manually. error code %d\n",
          path, removed);
      left += file.size;
      continue;
    }
    Sys_File::Remove(old.companion(".sum"));
    Sys_File::Remove(old.companion(".old"));
    if (const int kept = lock.ReleaseAndDelete()) {
      logger.warning(
          "Failed to remove user old lock file %S, may need to remove it manually. error code %d\n",
          path, kept);
    }
  }
  return left;
}
