// What a synchronized repository keeps of each of its two files.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <CFG/CFG_SynchronizedFileRepository.h>
#include <CFG/sync/file_header.h>
#include <CFG/sync/synced_file.h>
#include <thread/Thread.h>
#include <tree/String_Arr.h>
#include <tree/Tree_NodePtr.h>

// While one lives, no operation of its thread waits for a synchronizer: the tree is held, or
// the thread is one of those that others wait for.
class CFG_SynchronizedFileRepository::NoWaiting {
 public:
  NoWaiting() { ++s_count; }
  ~NoWaiting() { --s_count; }
  NoWaiting(const NoWaiting&) = delete;
  NoWaiting& operator=(const NoWaiting&) = delete;
  static bool holds() { return s_count != 0; }

 private:
  static inline constinit thread_local int s_count = 0;
};

struct CFG_SynchronizedFileRepository::Half {
  explicit Half(bool user) : is_user(user) {}

  const char* kind() const { return is_user ? "User" : "System"; }
  const char* lower_kind() const { return is_user ? "user" : "system"; }

  const bool is_user;
  std::optional<cfg::synced_file> file;  // none: the branch has no file

  // Made by whoever loads the file, before `header_ready` and the end of loading.
  std::optional<cfg::Synced_Cfg_File_Header> header;  // of the generation that is tried
  std::string header_bytes;
  Sys_File::Identity identity;
  bool is_newest = false;              // that is FILE, not FILE.old
  std::atomic<bool> is_loaded{false};  // its tree is served
  int64_t written = 0;
  ThreadEvent header_ready{ThreadEvent::MANUAL_RESET};
  std::atomic<bool> is_useless{false};  // everything is fetched anyway

  // Guarded by the pass lock.
  RWCString file_sequence{"0"};     // where a partial synchronization begins
  RWCString current_sequence{"0"};  // of the service when the last one began
  bool need_full = true;

  std::atomic<bool> is_done{false};     // reads need not look at the joiner any more
  std::atomic<bool> is_as_is{false};    // they have been let go without the service
  std::atomic<bool> is_current{false};  // in step with the service
  SingleUse_ThreadJoiner joiner;
  SingleUse_ThreadJoiner current_joiner;
};

// What the service says of a path.
struct CFG_SynchronizedFileRepository::Branch {
  RWCString path;  // in lower case
  RWCString stop_path;
  bool is_full = true;
  Tree_NodePtr tree;       // null: nothing is there, or has changed
  Tree_NodePtr deleted;    // whose leaves are
  bool is_gone = false;    // nothing is there
  bool is_pruned = false;  // the branches that are never kept are left out
};

// Brings the tree in step with the service, on a thread of its own.
class CFG_SynchronizedFileRepository::Synchronizer : public Thread {
 public:
  Synchronizer(CFG_SynchronizedFileRepository* repository, bool is_user)
      : Thread(is_user ? "cfg sync user" : "cfg sync"),
        m_repository(repository),
        m_is_user(is_user) {}
  ~Synchronizer() override { join(); }

  void Run() override;
  // One pass over the paths; false when the service did not answer all of it. With the pass lock.
  bool synchronize(String_Arr& paths, RWCString stop_path);
  bool synchronize(const RWCString& path, const RWCString& stop_path);
  bool wait_for_main_thread_tree();

 private:
  bool run_pass();
  bool pass();
  bool fetch(Branch& branch, const RWCString& since);
  void run_until_current();
  void stay_in_step();
  bool save();
  void stop_counting() const;
  Half& half() const { return m_is_user ? *m_repository->m_user : *m_repository->m_system; }

  CFG_SynchronizedFileRepository* const m_repository;
  const bool m_is_user;
};
