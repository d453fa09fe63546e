// A repository in memory that starts from local files and is kept in step with the service.
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>

#include <CFG/CFG_FileRepositoryBase.h>
#include <CFG/CFG_Repository.h>
#include <thread/ThreadEvent.h>
#include <utility/SingleUse_ThreadJoiner.h>

class SECM_crypt;
namespace cfg {
class overlapping_changes;
class synced_file;
struct Synced_Cfg_File_Header;
}  // namespace cfg

// The whole tree in memory answers every read. It comes from two files, the System file (all but
// the users) and one file for each user, and from the service of the properties that
// CFG_Repository names: what has changed there since the files were written or, where the files are
// of no use, everything. Each write goes to the service first and, once that has taken it, into
// the tree.
//
// Start: Connect returns as soon as the System file is in memory. Reads wait until the tree is that
// of the service, those below halvoria\users until that of the user is, too, which begins when
// the property CurrUser is set. A service that does not answer keeps nobody waiting who has
// usable files: after 0.7 seconds they are served as they are, and are brought up to date as soon
// as it answers. GetProperty("HALVORIA_SYNC_STATE") says which: "loading", "current", or
// "stale since 2026-11-24 08:00:00Z", the time of the files. With the property
// HALVORIA_OFFLINE_START set to "no" reads wait for the service.
//
// What changes at the service later is seen after SynchronizeSubTree, or the next start.
//
// Any thread may call any operation; nobody sees half of a branch's changes. Reads and writes
// are those of other threads' making only as a whole. In a child of a fork the tree is
// served as it was then.
class HALVORIA_API CFG_SynchronizedFileRepository : public CFG_FileRepositoryBase {
 public:
  using CFG_FileRepositoryBase::AddOrReplaceSubTree;
  using CFG_FileRepositoryBase::GetMaxSeqNumber;
  using CFG_FileRepositoryBase::GetSubTree;

  class Synchronizer;

  static constexpr char CFG_SERVER_RESET_COUNT[] =
      "halvoria\\system\\applications\\central_configuration\\reset_count";
  static constexpr char SYNCHRONIZATION_MAX_DAYS_PATH[] =
      "halvoria\\system\\applications\\central_configuration\\max_days_to_sync";
  static constexpr char USERS_IGNORE_PATH[] = "halvoria\\users";
  static const RWCString USERS_IGNORE_PATH_RW;
  static constexpr bool READ_WRITE_WITH_NEW_FORMAT = true;

  // What the header of a file says, and whether there are checksums beside it.
  struct FileFacts {
    RWCString service;  // its sync id, else its name
    RWCString user;
    RWCString sequence;
    uint32_t reset_count = 0;
    RWCString format_version, product_version;
    bool is_encrypted = false;
    bool has_checksums = false;
    int64_t written = 0;  // seconds since 1970
  };
  // The tree of a file, with the path above it; the caller owns it. Null, and why, when the file
  // cannot be read or is damaged. Changes nothing but that the file's lock is held meanwhile.
  [[nodiscard]] static CFG_SubTree* ReadFile(const RWWString& file, FileFacts& facts,
                                             RWCString& error);

  // Of the sync status, which only the log shows.
  enum SyncStatus { USER_LOADED = 1, SYSTEM_LOADED = 2, FULL_USER_SYNC = 4, FULL_SYSTEM_SYNC = 8 };

  // The name of the System file: without a folder it lies in the folder for what the library
  // writes. The files of a folder that cannot be written go to that of the environment's TEMP.
  // Empty: there are no files.
  explicit CFG_SynchronizedFileRepository(RWWString file);
  ~CFG_SynchronizedFileRepository() override;

  // --- CFG_Services ------------------------------------------------------------------------

  [[nodiscard]] CFG_SubTree* GetSubTree(RWCString& path, int index) override;  // a copy
  // The first CurrUser begins with that user's branch, and waits for it when it is connected.
  int SetProperty(RWCString name, RWCString value) override;
  RWCString GetProperty(RWCString name) override;
  int SetValue(const RWCString& path, const RWCString& value) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path, int merge) override;
  int AddOrReplaceSubTree(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTree(const RWCString& path) override;
  int DeleteValue(const RWCString& path) override;
  // Brings the paths up to date now, on this thread; nothing at `stop_path` is touched. 0 before
  // Connect, else 1: what the service did not answer is logged.
  int SynchronizeSubTree(String_Arr* paths, const RWCString& stop_path) override;

  // --- CFG_RepositoryServices --------------------------------------------------------------

  [[nodiscard]] String_Arr* FillPath(RWCString pattern) override;
  RWCString FillPath(RWCString pattern, RWCString value_name, RWCString value) override;
  int ExportPath(const RWCString& path, const RWWString& file) override;
  int Connect() override;
  int DisConnect() override;
  int Lock() override;
  int UnLock() override;  // 1; writes nothing
  int StartTransaction() override;
  int EndTransaction() override;
  int StartWriteTransaction() override;
  int EndWriteTransaction() override;
  int Rollback() override;
  int StartTransactionUpdate() override;
  int EndTransactionUpdate(bool failed) override;
  int StartTransactionUpdateBaseRep() override;
  int EndTransactionUpdateBaseRep(bool failed) override;
  int StartTransactionUpdateSecondaryRep() override;
  int EndTransactionUpdateSecondaryRep(bool failed) override;
  RWCString GetDbServerDateTime() override;
  RWCString GetMaxSeqNumber() override;
  RWCString GetMinSeqNumberOfDeletedEntry() override;
  RWCString GetServerNodeName() override;
  RWCString GetServerSyncID() override;
  void SetWorkCompressed(bool compressed) override;
  // The tree alone, and the service alone.
  int AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTreeOnlyBaseRep(const RWCString& path) override;
  int DeleteValueOnlyBaseRep(const RWCString& path) override;
  int AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree* sub_tree, const RWCString& path) override;
  int DeleteSubTreeOnlySecondaryRep(const RWCString& path) override;
  int DeleteValueOnlySecondaryRep(const RWCString& path) override;

  // --- added here ------------------------------------------------------------------------------

  CFG_RepositoryServices* GetServerRepository() override;
  // Until reads outside, or inside, the users' branch need not wait any more.
  void WaitForMainSync();
  void WaitForUserSync();
  bool FinishedWritingSyncFiles() const { return m_finished_writing != 0; }

 protected:
  int WriteSubTree(Tree_NodePtr& sub_tree, const RWCString& path) override;
  int SetOrRanameKeyName(const RWCString& path, const RWCString& key_name) override;
  void before_path_used(const RWCString& path) override;
  void before_all_paths_used() override;

 private:
  // What belongs to one of the two files, and to its synchronizer.
  struct Half;
  struct Branch;
  class NoWaiting;

  // Connecting, and the files.
  void set_synced_files_path();
  RWWString get_full_file_path(bool user) const;
  void connect_server_repository();
  bool has_sync_id();
  bool read_server_state();
  void start_user_phase();
  Tree_NodePtr load_tree(Half& half);
  Tree_NodePtr load_generation(Half& half, int generation);
  Tree_NodePtr read_file_data(Half& half, const char* bytes, size_t length);
  void load_system_file();
  void load_user_file();
  bool CheckVersionMatch(const cfg::Synced_Cfg_File_Header& header);
  bool CheckNeedFullSync(Half& half);
  std::optional<bool> need_full_sync_by_sequence(const RWCString& local, RWCString* server_min);
  bool is_in_doubt();
  // False, and nothing more is written, when an update is open or has begun meanwhile; what else
  // fails is logged.
  bool save_tree_to_file(bool with_data);
  bool save_half(Half& half, bool with_data, uint64_t updates);
  uint64_t remove_users_old_files();
  void set_sync_status(int status, const char* why);

  // Being in step with the service.
  int in_both(const RWCString& touched, const std::function<int()>& at_service,
              const std::function<int()>& in_tree);
  void put_right(const RWCString& path);
  bool refresh(const RWCString& path);
  bool settle();
  void end_of_update(bool is_over, bool is_undone);
  bool has_tree();
  bool has_in_tree(const RWCString& path);
  bool place(const Branch& branch, const std::vector<std::string>& kept);
  void wait_for(Half& half);
  void WaitOnThreadJoiner(SingleUse_ThreadJoiner& joiner, std::atomic<bool>& done);
  void serve_as_is(Half& half, const char* why);
  bool is_in_forked_child() const;
  bool pause(std::chrono::milliseconds time);  // false: the end has come
  RWCString sync_state();

  CFG_Repository m_server;
  std::unique_ptr<Half> m_system, m_user;
  std::unique_ptr<Synchronizer> m_main_synchronizer, m_user_synchronizer;
  std::atomic<bool> m_connected{false}, m_is_connecting{false};
  std::atomic<bool> m_user_phase_started{false};
  std::atomic<bool> m_tree_changed{false};
  std::atomic<int> m_finished_writing{0};
  std::atomic<int> m_sync_status{0};
  std::atomic<bool> m_early_read_is_logged{false};
  bool m_work_compressed = false;
  bool m_is_encrypted = false;
  std::atomic<bool> m_is_server_known{false};  // its answers stand in the next two
  uint32_t m_server_reset_count = 0;
  RWCString m_server_sync_id;
  RWWString m_folder;
  std::unique_ptr<SECM_crypt> m_cipher;
  unsigned m_generation = 0;  // of the process that connected
  std::chrono::steady_clock::time_point m_connect_began;

  ForkReleasedMutex m_connect_lock;   // for the whole of Connect
  ForkReleasedMutex m_pass_lock;      // of a pass, and of what it decides
  ForkReleasedMutex m_state_lock;     // for moments
  RWCString m_current_user;           // guarded by m_state_lock; from the user's phase on it stays
  std::set<std::string> m_unsettled;  // paths that may differ from the service; likewise
  std::unique_ptr<cfg::overlapping_changes> m_changes;
  ThreadEvent m_stop{ThreadEvent::MANUAL_RESET};
  ThreadEvent m_work{ThreadEvent::AUTO_RESET};
  SingleUse_ThreadJoiner m_local_tree_joiner;
};
