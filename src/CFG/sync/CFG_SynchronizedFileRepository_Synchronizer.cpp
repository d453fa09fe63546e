// The passes over the service's tree.
#include <algorithm>
#include <mutex>
#include <shared_mutex>

#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/moving_merge.h>
#include <CFG/detail/outermost_removals.h>
#include <CFG/detail/overlapping_changes.h>
#include <CFG/detail/paths.h>
#include <CFG/sync/log_times.h>
#include <CFG/sync/sync_state.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>
#include <utility/Tmr_PerformanceMonitorCounters.h>

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SynchronizedFileRepository", 502);

constexpr int kCounters = 2;  // the type of performance monitoring that counts us
constexpr std::chrono::seconds kFirstPause(1), kLongestPause(60);
constexpr std::chrono::milliseconds kSavePause(100);
constexpr const char* kMainPaths[] = {"halvoria\\system", "halvoria\\conf", "halvoria\\groups"};
constexpr const char* kNeverKept[] = {"halvoria\\system\\queues", "halvoria\\system\\repositories"};

// What is behind the first component, and is at or below `top`.
std::string_view below_root(std::string_view path) {
  const size_t cut = path.find('\\');
  return cut == path.npos ? std::string_view() : path.substr(cut + 1);
}
// Whether `path` is `top` or below it; `rest` is then what is behind it.
bool is_at_or_below(std::string_view path, std::string_view top, std::string_view& rest) {
  if (path.substr(0, top.size()) != top) return false;
  rest = path.substr(top.size());
  if (rest.empty()) return true;
  if (rest.front() != '\\') return false;
  rest.remove_prefix(1);
  return true;
}

// Takes the node at a path below `top` out of its tree.
Tree_NodePtr take_at(const Tree_NodePtr& top, std::string_view path) {
  Tree_NodePtr node = top && !path.empty() ? top->Find(path) : nullptr;
  Tree_Node* const parent = node ? node->GetParent() : nullptr;
  if (!parent) return nullptr;
  parent->Remove(node);
  return node;
}

// Puts it there; values on the way give way.
void put_at(const Tree_NodePtr& top, std::string_view path, const Tree_NodePtr& node) {
  for (size_t cut = path.find('\\'); cut != path.npos; cut = path.find('\\', cut + 1)) {
    const Tree_Node* const on_the_way = top->Find(path.substr(0, cut));
    if (on_the_way && on_the_way->IsLeaf()) take_at(top, path.substr(0, cut));
  }
  take_at(top, path);
  const size_t last = path.rfind('\\');
  top->Put(last == path.npos ? std::string_view() : path.substr(0, last), node);
}

}  // namespace

// --- placing -------------------------------------------------------------------------------------

bool CFG_SynchronizedFileRepository::has_tree() {
  const std::shared_lock<ReadMostlyLock> lock(*m_tree_lock);
  return m_sub_tree != nullptr;
}

bool CFG_SynchronizedFileRepository::has_in_tree(const RWCString& path) {
  const std::shared_lock<ReadMostlyLock> lock(*m_tree_lock);
  return m_sub_tree->GetData()->Find(below_root(path.view())) != nullptr;
}

// All of it or nothing is seen. What goes is destroyed when the tree is free again.
bool CFG_SynchronizedFileRepository::place(const Branch& branch,
                                           const std::vector<std::string>& kept) {
  std::vector<Tree_NodePtr> gone;
  const std::string path = branch.path.str();
  std::string_view rest;
  for (const std::string& changed : kept) {
    if (changed.empty() || is_at_or_below(path, changed, rest)) return false;
  }
  Tree_NodePtr tree = branch.tree;
  if (tree && !tree->IsLeaf()) {
    if (is_at_or_below(branch.stop_path, path, rest)) gone.push_back(take_at(tree, rest));
    for (const char* never : kNeverKept) {
      if (branch.is_pruned && is_at_or_below(never, path, rest))
        gone.push_back(take_at(tree, rest));
    }
  }

  const std::unique_lock<ReadMostlyLock> lock(*m_tree_lock);
  const Tree_NodePtr root = m_sub_tree ? m_sub_tree->GetData() : nullptr;
  if (!root) return false;
  const std::string_view at = below_root(path);
  const Tree_NodePtr there = at.empty() ? root : Tree_NodePtr(root->Find(at));
  if (!branch.is_full && there && !there->IsLeaf()) {
    for (const std::string& changed : kept) {
      if (!is_at_or_below(changed, path, rest)) continue;
      if (tree) gone.push_back(take_at(tree, rest));
      if (branch.deleted) gone.push_back(take_at(branch.deleted, rest));
    }
    if (tree) cfg::merge_moving(*there, *tree, branch.stop_path);
    if (branch.deleted && !branch.deleted->IsEmpty()) cfg::remove_named(*there, *branch.deleted);
    if (branch.is_gone) gone.push_back(take_at(root, at));
  } else {
    // What stays is put into the new branch.
    std::vector<std::pair<std::string, Tree_NodePtr>> staying;
    const auto keep = [&](std::string_view kept_path) {
      if (!is_at_or_below(kept_path, path, rest)) return;
      staying.emplace_back(below_root(kept_path), take_at(root, below_root(kept_path)));
    };
    if (!branch.stop_path.isNull()) keep(branch.stop_path);
    for (const std::string& changed : kept) keep(changed);
    if (at.empty() && tree) {
      tree->SetVirtualParentPath("");
      gone.push_back(root);
      m_sub_tree = std::make_unique<CFG_SubTree>(tree);
    } else if (!at.empty()) {
      gone.push_back(take_at(root, at));
      if (tree) put_at(root, at, tree);
    }
    const Tree_NodePtr top = m_sub_tree->GetData();
    for (const auto& [place, node] : staying) {
      gone.push_back(take_at(top, place));
      if (node) put_at(top, place, node);
    }
  }
  for (const char* never : kNeverKept) {
    if (branch.is_pruned) gone.push_back(take_at(m_sub_tree->GetData(), below_root(never)));
  }
  return true;
}

// --- the thread ----------------------------------------------------------------------------------

void CFG_SynchronizedFileRepository::Synchronizer::Run() try {
  if (!m_repository) return logger.error("Error while initiating the synchronizer thread\n");
  const NoWaiting synchronizing;
  if (m_is_user) {
    if (Tmr_PerformanceMonitorCounters::IsEnabled(kCounters)) {
      Tmr_PerformanceMonitorCounters::GetInstance().AddCounter(0, "C_CFG_U");
      Tmr_PerformanceMonitorCounters::GetInstance().Start("C_CFG_U");
    }
    m_repository->load_user_file();
  }
  run_until_current();
  if (!half().is_current) return;
  if (!m_is_user) return stay_in_step();
  stop_counting();
  while (!save()) {
    if (!m_repository->pause(kSavePause)) return;
  }
} catch (...) {
  cfg::log_exception(logger, "CFG_SynchronizedFileRepository::Synchronizer::Run");
}

// False when nothing was saved, since the service may still undo what is in the tree.
bool CFG_SynchronizedFileRepository::Synchronizer::save() {
  auto& repository = *m_repository;
  const MutexGuard guard(repository.m_pass_lock);
  const bool is_changed = repository.m_tree_changed;
  if (!repository.save_tree_to_file(is_changed)) return false;
  repository.m_finished_writing = 1;
  repository.m_tree_changed = false;
  repository.remove_users_old_files();
  return true;
}

void CFG_SynchronizedFileRepository::Synchronizer::stop_counting() const {
  if (!Tmr_PerformanceMonitorCounters::IsEnabled(kCounters)) return;
  Tmr_PerformanceMonitorCounters::GetInstance().Stop(m_is_user ? "C_CFG_U" : "C_CFG_S");
}

// With growing pauses, until the service has answered everything.
void CFG_SynchronizedFileRepository::Synchronizer::run_until_current() {
  auto& repository = *m_repository;
  std::chrono::seconds pause = kFirstPause;
  for (;;) {
    bool is_done = false;
    try {
      is_done = run_pass();
    } catch (...) {
      cfg::log_exception(logger, "synchronize");
    }
    if (is_done) break;
    if (!m_is_user) repository.m_local_tree_joiner.Wait();
    if (half().is_loaded && repository.GetProperty("HALVORIA_OFFLINE_START") != "no") {
      repository.serve_as_is(half(), "does not answer");
    }
    if (!repository.pause(pause)) return;
    pause = std::min(2 * pause, kLongestPause);
  }
  if (half().is_as_is) logger.info("the %s tree is current again\n", half().lower_kind());
  half().is_current = true;
  half().is_done = true;
  half().joiner.Signal();
  half().current_joiner.Signal();
  if (m_is_user) return;
  repository.m_user->is_done = repository.m_user->is_as_is.load();
  logger.detail("The main synchronization process was completed. The user tree is not valid yet\n");
}

bool CFG_SynchronizedFileRepository::Synchronizer::run_pass() {
  CFG_Repository& server = m_repository->m_server;
  if (m_is_user) {
    if (m_repository->m_system->is_as_is && half().is_loaded &&
        m_repository->GetProperty("HALVORIA_OFFLINE_START") != "no") {
      m_repository->serve_as_is(half(), "does not answer");
    }
    while (!m_repository->m_system->current_joiner.Wait(std::chrono::milliseconds(100))) {
      if (!m_repository->pause(std::chrono::milliseconds(0))) return false;
    }
  }
  server.StartTransaction();
  bool is_done = false;
  try {
    const MutexGuard guard(m_repository->m_pass_lock);
    is_done = pass();
  } catch (...) {
    cfg::log_exception(logger, "synchronize");
  }
  server.EndTransaction();
  return is_done;
}

bool CFG_SynchronizedFileRepository::Synchronizer::pass() {
  auto& repository = *m_repository;
  Half& mine = half();
  const cfg::failure_watch reads;
  if (!repository.m_is_server_known && !repository.read_server_state()) return false;
  mine.header_ready.wait();
  if (!repository.CheckNeedFullSync(mine)) return false;

  String_Arr paths;
  if (m_is_user) {
    const MutexGuard guard(repository.m_state_lock);
    paths.AddStr(RWCString(cfg::join(USERS_IGNORE_PATH, repository.m_current_user)));
    logger.info("Starting user synchronization for user: %s\n", repository.m_current_user);
  } else {
    logger.info("Starting main synchronization\n");
    for (const char* path : kMainPaths) paths.AddStr(path);
  }
  const RWCString stop_path = m_is_user ? RWCString() : USERS_IGNORE_PATH_RW;

  const RWCString max = repository.GetMaxSeqNumber();
  if (reads.has_failed()) return false;
  if (!mine.need_full && cfg::compare_sequence_numbers(max, mine.file_sequence) < 0) {
    logger.info("the service is at change %s, the %s file at %s: full synchronization\n", max,
                mine.lower_kind(), mine.file_sequence);
    mine.is_useless = mine.need_full = true;
  }
  mine.current_sequence = max;
  if (!synchronize(paths, stop_path)) return false;
  if (!mine.need_full) {
    RWCString min;
    const auto is_too_late = repository.need_full_sync_by_sequence(mine.file_sequence, &min);
    if (!is_too_late) return false;
    if (*is_too_late) {
      if (m_is_user) {
        logger.info("Performing FULL USER synchronization , server min seq %s, my seq %s\n", min,
                    mine.file_sequence);
      } else {
        logger.info("Performing FULL synchronization , server min seq %s my seq is %s\n", min,
                    mine.file_sequence);
      }
      mine.need_full = true;
      mine.current_sequence = repository.GetMaxSeqNumber();
      if (reads.has_failed() || !synchronize(paths, stop_path)) return false;
    }
  }
  if (!m_is_user) stop_counting();
  logger.info("%s synchronization ended\n", mine.kind());
  if (m_is_user && !repository.has_tree()) {
    logger.error("Synchronization of configuration failed. no tree retrieved\n");
  }
  return true;
}

bool CFG_SynchronizedFileRepository::Synchronizer::synchronize(const RWCString& path,
                                                               const RWCString& stop_path) {
  String_Arr paths;
  paths.AddStr(path);
  return synchronize(paths, stop_path);
}

bool CFG_SynchronizedFileRepository::Synchronizer::synchronize(String_Arr& paths,
                                                               RWCString stop_path) {
  auto& repository = *m_repository;
  Half& mine = half();
  const cfg::stored_paths as_stored;
  const NoWaiting synchronizing;
  CFG_ServicesImp::tolower(stop_path);
  bool are_all_done = true;
  bool is_full = mine.need_full;
  RWCString since = mine.file_sequence;
  repository.m_server.StartTransaction();
  struct End {
    ~End() { server.EndTransaction(); }
    CFG_Repository& server;
  } const end{repository.m_server};
  if (is_full) logger.info("Retrieving full paths from server\n");
  for (int i = 0; i < paths.GetArrLen(); ++i) {
    RWCString path(paths.GetStr(i));
    CFG_ServicesImp::tolower(path);
    logger.trace("synchronizing path %s (no. %d of %d) %s\n ", path, i, paths.GetArrLen(),
                 m_is_user ? "user synch" : "");
    const cfg::timed_line time(logger);
    // What this process writes meanwhile is not undone; after that, a branch is read once more.
    bool is_placed = false;
    for (int attempt = 0; attempt < 3 && !is_placed; ++attempt) {
      std::vector<std::string> kept;
      cfg::overlapping_changes::Use use(*repository.m_changes, path, &kept);
      Branch branch;
      branch.path = path;
      branch.stop_path = stop_path;
      branch.is_full = is_full;
      branch.is_pruned = !m_is_user;
      if (!fetch(branch, since)) break;
      time.write("Finished getting data from server for path %s, took %f milliseconds", path);
      if (i == 0) {
        const cfg::timed_line waiting(logger);
        if (!wait_for_main_thread_tree()) logger.error("Problem reading the tree\n");
        waiting.write("Waited for Main thread to read file from disk, took %f milliseconds");
        // The file's data may have been of no use: then its older generation, or nothing, is there.
        if (!m_is_user && !mine.joiner.IsSignalled() && !repository.CheckNeedFullSync(mine)) break;
        if (mine.need_full != is_full || mine.file_sequence != since) {
          logger.info(
              "Main thread reported error in reading file. Will restart sync and change mode to \"Full Sync\"");
          is_full = mine.need_full;
          since = mine.file_sequence;
          --attempt;
          continue;
        }
      }
      const bool has_news = branch.is_gone ? repository.has_in_tree(path)
                                           : branch.tree && (is_full || !branch.tree->IsEmpty());
      const bool has_deletions = branch.deleted && !branch.deleted->IsEmpty();
      if (has_news) logger.trace("merging main sub tree\n ");
      if (has_deletions) logger.trace("merging deleted sub tree\n ");
      if (has_news || has_deletions) repository.m_tree_changed = true;
      use.keep_rest([&] { is_placed = repository.place(branch, kept); });
      time.write(
          "Finished getting data from server AND merging into memory for path %s, took %f milliseconds",
          path);
    }
    if (!is_placed) logger.error("path %s was not synchronized\n", path);
    are_all_done = are_all_done && is_placed;
  }
  return are_all_done;
}

bool CFG_SynchronizedFileRepository::Synchronizer::fetch(Branch& branch, const RWCString& since) {
  CFG_Repository& server = m_repository->m_server;
  const cfg::failure_watch reads;
  const auto tree_of = [](CFG_SubTree* owned) {
    const std::unique_ptr<CFG_SubTree> sub_tree(owned);
    return sub_tree ? sub_tree->GetData() : Tree_NodePtr();
  };
  RWCString path = branch.path, from = since;
  if (branch.is_full) {
    branch.tree = tree_of(server.GetSubTree(path));
    branch.is_gone = !branch.tree;
  } else {
    branch.tree = tree_of(server.GetSubTreeBySeqNumber(path, from));
    const cfg::outermost_removals outermost;
    branch.deleted = tree_of(server.GetSubTreeOnlyDeletedNodes(path, from, false));
    if (!branch.tree) branch.is_gone = !reads.has_failed() && !server.IsSubTreeExist(path);
  }
  // A path with a `%` that nothing has is taken for a pattern.
  const std::string_view name = cfg::split_path(path).name;
  for (Tree_NodePtr* tree : {&branch.tree, &branch.deleted}) {
    if (*tree && (*tree)->NameView() != name) *tree = nullptr;
  }
  return !reads.has_failed();
}

bool CFG_SynchronizedFileRepository::Synchronizer::wait_for_main_thread_tree() {
  auto& repository = *m_repository;
  if (repository.m_connected) {
    logger.detail(
        "The local tree managed to build before the completion of the first remote batch\n");
    return true;
  }
  logger.detail("The first batch of the remote tree was retrieved before the local tree\n");
  repository.m_local_tree_joiner.Wait();
  logger.trace("Tree is read, continue with synchronization\n");
  if (repository.m_connected) return true;
  return logger.reject(false, "Error while waiting for the local tree\n");
}

// Looks again at the paths of writes of which it is not known what became of them.
void CFG_SynchronizedFileRepository::Synchronizer::stay_in_step() {
  auto& repository = *m_repository;
  std::chrono::seconds pause = kFirstPause;
  for (bool is_settled = true;;) {
    if (is_settled) {
      repository.m_work.wait();
      pause = kFirstPause;
    } else {
      pause = std::min(2 * pause, kLongestPause);
    }
    if (!repository.pause(is_settled ? std::chrono::seconds(0) : pause)) return;
    is_settled = repository.settle();
  }
}

int CFG_SynchronizedFileRepository::SynchronizeSubTree(String_Arr* paths,
                                                       const RWCString& stop_path) try {
  if (!paths || !m_connected || is_in_forked_child()) {
    return logger.reject(FALSE, "SynchronizeSubTree: not connected, return FALSE\n");
  }
  for (int i = 0; i < paths->GetArrLen(); ++i) {
    const RWCString actual = change_string_with_properties(RWCString(paths->GetStr(i)));
    paths->SetStr(i, actual.data(), static_cast<int>(actual.length()));
  }
  wait_for(*m_system);
  const MutexGuard guard(m_pass_lock);
  const auto check = [&] {
    const auto is_too_late = need_full_sync_by_sequence(m_system->current_sequence, nullptr);
    if (is_too_late.value_or(false)) m_system->need_full = true;
  };
  check();
  const bool was_full = m_system->need_full;
  bool is_done = m_main_synchronizer->synchronize(*paths, stop_path);
  if (!was_full) check();
  if (m_system->need_full != was_full)
    is_done = m_main_synchronizer->synchronize(*paths, stop_path);
  if (!is_done) logger.error("SynchronizeSubTree: the service did not answer\n");
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
