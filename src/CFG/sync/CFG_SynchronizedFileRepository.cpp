// A client's tree, its files and the service. This source holds the operations; ..._Files what
// concerns files and connecting, ..._Synchronizer the passes over the service's tree.
//
// Who waits for whom:
//
//   Connect             loads the System file, puts the tree in place: local-tree joiner
//   main synchronizer   asks the service who it is, decides by the file's header, fetches, waits
//   for
//                       the local tree, merges: the system's joiner. When the service does not
//                       answer and the file's tree is there, the joiner all the same, and goes on
//                       trying; afterwards it puts right what a failed write left in doubt
//   user synchronizer   from the first CurrUser: waits for the system's joiner, loads the user's
//                       file, does the same with the user's branch: the user's joiner. Saves both
//                       files once both halves are in step
//   reads               wait for one of the joiners, then share the tree's lock
//   writes              the service, then the tree; what overlaps is listed in m_changes
//
// Locks, outer ones first: m_connect_lock, m_pass_lock, that of m_changes, the tree's.
#include <CFG/CFG_SynchronizedFileRepository.h>

#include <shared_mutex>

#include <CFG/CFG_RepositoryTransaction.h>
#include <CFG/CFG_SubTree.h>
#include <CFG/detail/actual_path.h>
#include <CFG/detail/answered.h>
#include <CFG/detail/exact_reads.h>
#include <CFG/detail/held_tree.h>
#include <CFG/detail/overlapping_changes.h>
#include <CFG/detail/paths.h>
#include <CFG/sync/file_cipher.h>
#include <CFG/sync/sync_state.h>
#include <SECM/SECM_crypt.h>
#include <logging/Logger.h>
#include <tree/Tree_Node.h>

using cfg::held_tree;
using Use = cfg::overlapping_changes::Use;

namespace {

constexpr Log_Logger logger("src/CFG/CFG_SynchronizedFileRepository", 502);

constexpr char CURRENT_USER[] = "CurrUser";
constexpr char STATE[] = "HALVORIA_SYNC_STATE";

constexpr std::chrono::milliseconds kWaitForAnswer(700);   // of a service that says nothing
constexpr std::chrono::milliseconds kWaitForTree(10'000);  // of one that has answered
constexpr int kRefreshes = 5;                              // of a path that others go on writing

// In any case; every read comes by here.
bool is_below_users(std::string_view path) {
  constexpr std::string_view users = CFG_SynchronizedFileRepository::USERS_IGNORE_PATH;
  if (path.size() < users.size()) return false;
  for (size_t i = users.size(); i-- > 0;) {
    const char c = path[i];
    if (users[i] != (c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : c)) return false;
  }
  return true;
}

}  // namespace

const RWCString CFG_SynchronizedFileRepository::USERS_IGNORE_PATH_RW = USERS_IGNORE_PATH;

CFG_SynchronizedFileRepository::CFG_SynchronizedFileRepository(RWWString file)
    : CFG_FileRepositoryBase(std::move(file)),
      m_system(std::make_unique<Half>(false)),
      m_user(std::make_unique<Half>(true)),
      m_main_synchronizer(std::make_unique<Synchronizer>(this, false)),
      m_user_synchronizer(std::make_unique<Synchronizer>(this, true)),
      m_generation(ForkHandler::Generation()),
      m_changes(std::make_unique<cfg::overlapping_changes>()) {
  constexpr int kNodes = 100'000;
  m_tree_lock = std::make_unique<ReadMostlyLock>();
  Tree_Node::InitNodesPool(kNodes);
  m_cipher = cfg::made_file_cipher();
  set_synced_files_path();
}

CFG_SynchronizedFileRepository::~CFG_SynchronizedFileRepository() {
  m_server.DisConnect();
  m_stop.signal();
  m_work.signal();
  m_server.Interrupt();
  for (Half* half : {m_system.get(), m_user.get()}) half->header_ready.signal();
  m_local_tree_joiner.Signal();  // when Connect came to no end
  if (is_in_forked_child()) {    // there are no such threads to be joined
    static_cast<void>(m_main_synchronizer.release());
    static_cast<void>(m_user_synchronizer.release());
    return;
  }
  m_user_synchronizer.reset();
  m_main_synchronizer.reset();
}

bool CFG_SynchronizedFileRepository::is_in_forked_child() const {
  return ForkHandler::Generation() != m_generation;
}

bool CFG_SynchronizedFileRepository::pause(std::chrono::milliseconds time) {
  return !m_stop.wait_for(time);
}

int CFG_SynchronizedFileRepository::DisConnect() {
  m_server.DisConnect();
  return TRUE;
}

// --- properties ----------------------------------------------------------------------------------

int CFG_SynchronizedFileRepository::SetProperty(RWCString name, RWCString value) try {
  const bool is_user = name == CURRENT_USER;
  if (!m_server.SetProperty(std::move(name), value)) return FALSE;
  if (!is_user || m_user_phase_started) return TRUE;
  {
    const MutexGuard guard(m_state_lock);
    m_current_user = value;
  }
  if (!m_connected) {
    logger.info("the user %s is set before Connect, which will begin with that user's branch\n",
                value);
    return TRUE;
  }
  start_user_phase();
  WaitForUserSync();
  return TRUE;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

RWCString CFG_SynchronizedFileRepository::GetProperty(RWCString name) try {
  return name == STATE ? sync_state() : CFG_FileRepositoryBase::GetProperty(std::move(name));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

RWCString CFG_SynchronizedFileRepository::sync_state() {
  bool is_settled = true;
  {
    const MutexGuard guard(m_state_lock);
    is_settled = m_unsettled.empty();
  }
  const bool is_user_current = !m_user_phase_started || m_user->is_current;
  if (m_system->is_current && is_user_current && is_settled) return "current";
  if (!m_system->is_as_is && !m_user->is_as_is && is_settled) return "loading";
  const std::time_t written = m_system->is_loaded ? m_system->written : m_user->written;
  std::tm when{};
  gmtime_r(&written, &when);
  char text[64];
  std::strftime(text, sizeof text, "stale since %Y-%m-%d %H:%M:%SZ", &when);
  return text;
}

// --- waiting -------------------------------------------------------------------------------------

void CFG_SynchronizedFileRepository::before_all_paths_used() { before_path_used("halvoria"); }

void CFG_SynchronizedFileRepository::before_path_used(const RWCString& path) {
  if (m_user->is_done) return;
  const bool is_of_users = is_below_users(path);
  if (!is_of_users && m_system->is_done) {
    return logger.trace(
        "The path '%s' was asked before the user sync was complete, but it's not a user path so we may continue\n",
        path);
  }
  if (NoWaiting::holds()) return;
  if (!m_connected && !m_is_connecting) {
    if (!m_early_read_is_logged.exchange(true)) {
      logger.error("The path '%s' was asked before Connect: the tree is empty\n", path);
    }
    return;
  }
  if (is_of_users) {
    logger.trace("The path '%s' was asked before the user sync was complete\n", path);
    return wait_for(*m_user);
  }
  logger.trace("The path '%s' was asked before the sync was complete\n", path);
  wait_for(*m_system);
}

// Whoever has a tree from files does not wait for a service that hangs.
void CFG_SynchronizedFileRepository::wait_for(Half& half) {
  using std::chrono::duration_cast;
  using std::chrono::milliseconds;
  if (half.is_done) return;
  if (is_in_forked_child()) {
    half.is_done = true;
    return logger.warning("a child of the process that connected has its %s tree as it was then\n",
                          half.lower_kind());
  }
  m_local_tree_joiner.Wait();
  const auto give = [&](milliseconds time) {
    const auto left = m_connect_began + time - std::chrono::steady_clock::now();
    return half.joiner.Wait(std::max(milliseconds(0), duration_cast<milliseconds>(left)));
  };
  const bool may_go_on = half.is_loaded && GetProperty("HALVORIA_OFFLINE_START") != "no";
  if (may_go_on && !give(kWaitForAnswer)) {
    if (!m_is_server_known) serve_as_is(half, "does not answer");
    if (!give(kWaitForTree)) serve_as_is(half, "takes too long");
  }
  if (!half.joiner.Wait(kWaitForTree)) {
    const bool has_user = m_user_phase_started || !half.is_user;
    logger.warning("a reader waits for the %s tree, until %s\n", half.lower_kind(),
                   has_user ? "the service answers" : "the property CurrUser is set");
  }
  WaitOnThreadJoiner(half.joiner, half.is_done);
}

void CFG_SynchronizedFileRepository::WaitOnThreadJoiner(SingleUse_ThreadJoiner& joiner,
                                                        std::atomic<bool>& done) {
  if (!done) joiner.Wait();
  done = true;
}

void CFG_SynchronizedFileRepository::WaitForMainSync() {
  if (!m_system->is_done) wait_for(*m_system);
}
void CFG_SynchronizedFileRepository::WaitForUserSync() {
  if (!m_user->is_done) wait_for(*m_user);
}

void CFG_SynchronizedFileRepository::serve_as_is(Half& half, const char* why) {
  if (half.is_current || half.joiner.IsSignalled() || half.is_as_is.exchange(true)) return;
  logger.warning("the service %s:%s %s: the %s tree is served as its file is, %s\n",
                 GetProperty("HALVORIA_REMOTE_SERVER_NAME"),
                 GetProperty("HALVORIA_REMOTE_SERVER_PORT"), why, half.lower_kind(), sync_state());
  half.is_done = true;
  half.joiner.Signal();
}

// --- reads that need more than to wait -------------------------------------------------------

CFG_SubTree* CFG_SynchronizedFileRepository::GetSubTree(RWCString& path, int index) try {
  before_path_used(path);
  const std::shared_lock<ReadMostlyLock> lock(*m_tree_lock);
  const held_tree tree(m_sub_tree.get());
  const std::unique_ptr<CFG_SubTree> found(
      tree.handle().GetSubTree(RWCString(tree.below_root(path)), index));
  return found ? new CFG_SubTree(found->GetData()->DuplicateFromHereDown(true)) : nullptr;
} catch (...) {
  return cfg::answered(logger, nullptr);
}

// Nobody waits for the disk.
int CFG_SynchronizedFileRepository::ExportPath(const RWCString& path, const RWWString& file) {
  // NOLINTNEXTLINE(bugprone-parent-virtual-call): that of the base writes with the tree held
  return CFG_RepositoryServicesImp::ExportPath(path, file);
}

// The steps of a pattern ask for the tree that is held by then.
String_Arr* CFG_SynchronizedFileRepository::FillPath(RWCString pattern) try {
  before_path_used(pattern);
  const NoWaiting walking;
  return CFG_FileRepositoryBase::FillPath(std::move(pattern));
} catch (...) {
  return cfg::answered(logger, nullptr);
}
RWCString CFG_SynchronizedFileRepository::FillPath(RWCString pattern, RWCString value_name,
                                                   RWCString value) try {
  before_path_used(pattern);
  const NoWaiting walking;
  return CFG_FileRepositoryBase::FillPath(std::move(pattern), std::move(value_name),
                                          std::move(value));
} catch (...) {
  return cfg::answered(logger, RWCString());
}

// --- writes --------------------------------------------------------------------------------------

// What the service has not taken does not go into the tree: nobody reads what is not there. Whether
// it was taken is not known when there was no answer, so the path is then read from the service.
int CFG_SynchronizedFileRepository::in_both(const RWCString& touched,
                                            const std::function<int()>& at_service,
                                            const std::function<int()>& in_tree) {
  bool is_overtaken = false;
  int is_local = FALSE;
  int is_taken = FALSE;
  {
    const NoWaiting writing;
    Use use(*m_changes, touched);
    is_taken = at_service();
    use.changed([&](bool overtaken) {
      is_overtaken = overtaken;
      if (is_taken) is_local = in_tree();
    });
  }
  if (!is_taken || !is_local || is_overtaken) put_right(touched);
  return is_taken && is_local;
}

// As soon as the service says what is there; within an update of another thread, once that is over.
void CFG_SynchronizedFileRepository::put_right(const RWCString& path) {
  if (!m_connected || is_in_forked_child() || refresh(path)) return;
  logger.error("whether <%s> is as at the service is not known, it is looked at again\n", path);
  const MutexGuard guard(m_state_lock);
  m_unsettled.insert(path.str());
  m_work.signal();
}

bool CFG_SynchronizedFileRepository::refresh(const RWCString& path) {
  const NoWaiting writing;
  const cfg::stored_paths as_stored;
  for (int i = 0; i < kRefreshes; ++i) {
    Use use(*m_changes, path);
    const cfg::failure_watch reads;
    Branch branch;
    branch.path = path;
    const std::unique_ptr<CFG_SubTree> key(cfg::read_exactly(m_server, path));
    if (key) {
      branch.tree = key->GetData();
    } else if (const RWCString text = m_server.GetValue(path); !text.isNull()) {
      branch.tree = Tree_NodePtr(new Tree_Node(cfg::split_path(path).name, text, 0));
    }
    branch.is_gone = !branch.tree;
    if (reads.has_failed()) return false;
    bool is_placed = false;
    use.keep([&] { is_placed = place(branch, {}); });
    if (is_placed) return true;
  }
  return false;
}

bool CFG_SynchronizedFileRepository::settle() {
  std::set<std::string> paths;
  {
    const MutexGuard guard(m_state_lock);
    paths = m_unsettled;
  }
  bool are_all = true;
  const CFG_RepositoryTransaction transaction(&m_server);  // which the end interrupts
  for (const std::string& path : paths) {
    if (!refresh(RWCString(path))) {
      are_all = false;
      continue;
    }
    const MutexGuard guard(m_state_lock);
    m_unsettled.erase(path);
  }
  return are_all;
}

int CFG_SynchronizedFileRepository::SetValue(const RWCString& path, const RWCString& value) try {
  if (!IsValidPath(path, "CFG_SynchronizedFileRepository::SetValue")) return FALSE;
  return in_both(
      change_string_with_properties(path), [&] { return m_server.SetValue(path, value); },
      [&] { return CFG_FileRepositoryBase::SetValue(path, value); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SynchronizedFileRepository::DeleteValue(const RWCString& path) try {
  if (!IsValidPath(path, "CFG_SynchronizedFileRepository::DeleteValue")) return FALSE;
  return in_both(
      change_string_with_properties(path), [&] { return m_server.DeleteValue(path); },
      [&] { return CFG_FileRepositoryBase::DeleteValue(path); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SynchronizedFileRepository::DeleteSubTree(const RWCString& path) try {
  if (!IsValidPath(path, "CFG_SynchronizedFileRepository::DeleteSubTree")) return FALSE;
  return in_both(
      change_string_with_properties(path), [&] { return m_server.DeleteSubTree(path); },
      [&] { return CFG_FileRepositoryBase::DeleteSubTree(path); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

namespace {

// The path that a subtree gets when it is written below another.
RWCString touched_path(const RWCString& actual, const Tree_NodePtr& tree) {
  const RWCString path = cfg::join(actual, tree ? tree->NameView() : std::string_view());
  return cfg::actual_path(path).copy();
}

}  // namespace

int CFG_SynchronizedFileRepository::WriteSubTree(Tree_NodePtr& sub_tree,
                                                 const RWCString& path) try {
  if (!IsValidPath(path, "CFG_SynchronizedFileRepository::WriteSubTree")) return FALSE;
  if (!sub_tree) return logger.reject(FALSE, "WriteSubTree, sub_tree is NULL, return FALSE\n");
  CFG_SubTree given(sub_tree);
  return in_both(
      touched_path(change_string_with_properties(path), sub_tree),
      [&] { return m_server.AddOrReplaceSubTree(&given, path); },
      [&] { return CFG_FileRepositoryBase::WriteSubTree(sub_tree, path); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SynchronizedFileRepository::AddOrReplaceSubTree(CFG_SubTree* sub_tree,
                                                        const RWCString& path) try {
  constexpr char op[] = "CFG_SynchronizedFileRepository::AddOrReplaceSubTree";
  if (!IsValidPath(path, op)) return FALSE;
  logger.info("%s started on path %s\n", op, path);
  if (!sub_tree) return logger.reject(FALSE, "%s, sub_tree is NULL, return FALSE\n", op);
  Tree_NodePtr tree = sub_tree->GetData();
  const RWCString actual = change_string_with_properties(path);
  const int is_done = in_both(
      touched_path(actual, tree), [&] { return m_server.AddOrReplaceSubTree(sub_tree, path); },
      [&] { return CFG_FileRepositoryBase::WriteSubTree(tree, actual); });
  logger.info("Add replace sub tree finished on path %s\n", path);
  return is_done;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SynchronizedFileRepository::AddOrReplaceSubTree(CFG_SubTree* sub_tree,
                                                        const RWCString& path, int merge) try {
  constexpr char op[] = "CFG_SynchronizedFileRepository::AddOrReplaceSubTree";
  if (!IsValidPath(path, op)) return FALSE;
  logger.info("%s with merge %s started on path %s\n", op, merge ? "true" : "false", path);
  if (!merge) return AddOrReplaceSubTree(sub_tree, path);
  if (!sub_tree) return logger.reject(FALSE, "%s, sub_tree is NULL, return FALSE\n", op);
  const int is_done = in_both(
      touched_path(change_string_with_properties(path), sub_tree->GetData()),
      [&] { return m_server.AddOrReplaceSubTree(sub_tree, path, merge); },
      [&] { return CFG_FileRepositoryBase::AddOrReplaceSubTree(sub_tree, path, merge); });
  logger.info("Add replace sub tree with merge finished on path %s\n", path);
  return is_done;
} catch (...) {
  return cfg::answered(logger, FALSE);
}

int CFG_SynchronizedFileRepository::SetOrRanameKeyName(const RWCString& path,
                                                       const RWCString& key_name) try {
  const RWCString parent(cfg::split_path(path).parent);
  return in_both(
      parent, [&] { return m_server.SetKeyName(path, key_name); },
      [&] { return CFG_FileRepositoryBase::SetOrRanameKeyName(path, key_name); });
} catch (...) {
  return cfg::answered(logger, FALSE);
}

// --- one of the two alone ------------------------------------------------------------------------

int CFG_SynchronizedFileRepository::AddOrReplaceSubTreeOnlyBaseRep(CFG_SubTree* sub_tree,
                                                                   const RWCString& path) try {
  constexpr char op[] = "CFG_SynchronizedFileRepository::AddOrReplaceSubTreeOnlyBaseRep";
  logger.info("%s started on path %s\n", op, path);
  Tree_NodePtr tree = sub_tree ? sub_tree->GetData() : Tree_NodePtr();
  const int is_done =
      tree ? CFG_FileRepositoryBase::WriteSubTree(tree, change_string_with_properties(path))
           : FALSE;
  logger.info("%s ended on path %s\n", op, path);
  return is_done;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
int CFG_SynchronizedFileRepository::DeleteSubTreeOnlyBaseRep(const RWCString& path) {
  logger.info("Delete subtree OnlyBaseRep started on path %s\n", path);
  const int is_done = CFG_FileRepositoryBase::DeleteSubTree(path);
  logger.info("Delete subtree OnlyBaseRep ended on path %s\n", path);
  return is_done;
}
int CFG_SynchronizedFileRepository::DeleteValueOnlyBaseRep(const RWCString& path) {
  logger.info("Delete value OnlyBaseRep started on path %s\n", path);
  const int is_done = CFG_FileRepositoryBase::DeleteValue(path);
  logger.info("Delete value OnlyBaseRep ended on path %s\n", path);
  return is_done;
}
int CFG_SynchronizedFileRepository::AddOrReplaceSubTreeOnlySecondaryRep(CFG_SubTree* sub_tree,
                                                                        const RWCString& path) {
  logger.info("Add replace sub tree OnlySecondaryRep started on path %s\n", path);
  const int is_done = m_server.AddOrReplaceSubTree(sub_tree, path);
  logger.info("Add replace sub tree OnlySecondaryRep ended on path %s\n", path);
  return is_done;
}
int CFG_SynchronizedFileRepository::DeleteSubTreeOnlySecondaryRep(const RWCString& path) {
  logger.info("Delete sub tree OnlySecondaryRep started on path %s\n", path);
  const int is_done = m_server.DeleteSubTree(path);
  logger.info("Delete sub tree OnlySecondaryRep ended on path %s\n", path);
  return is_done;
}
int CFG_SynchronizedFileRepository::DeleteValueOnlySecondaryRep(const RWCString& path) {
  constexpr char op[] = "CFG_SynchronizedFileRepository::DeleteValueOnlySecondaryRep";
  logger.info("%s started on path %s\n", op, path);
  const int is_done = m_server.DeleteValue(path);
  logger.info("%s ended on path <%s>\n", op, path);
  return is_done;
}

// --- the service's -------------------------------------------------------------------------------

CFG_RepositoryServices* CFG_SynchronizedFileRepository::GetServerRepository() {
  logger.info("GetServerRepository: Getting server repository access\n");
  return &m_server;
}
int CFG_SynchronizedFileRepository::Lock() { return TRUE; }
int CFG_SynchronizedFileRepository::UnLock() { return TRUE; }
int CFG_SynchronizedFileRepository::StartTransaction() { return TRUE; }
int CFG_SynchronizedFileRepository::EndTransaction() { return TRUE; }
int CFG_SynchronizedFileRepository::StartTransactionUpdateBaseRep() { return TRUE; }
int CFG_SynchronizedFileRepository::EndTransactionUpdateBaseRep(bool) { return TRUE; }
int CFG_SynchronizedFileRepository::StartWriteTransaction() {
  return m_server.StartWriteTransaction();
}
int CFG_SynchronizedFileRepository::EndWriteTransaction() { return m_server.EndWriteTransaction(); }
RWCString CFG_SynchronizedFileRepository::GetDbServerDateTime() {
  return m_server.GetDbServerDateTime();
}
RWCString CFG_SynchronizedFileRepository::GetMaxSeqNumber() { return m_server.GetMaxSeqNumber(); }
RWCString CFG_SynchronizedFileRepository::GetMinSeqNumberOfDeletedEntry() {
  return m_server.GetMinSeqNumberOfDeletedEntry();
}
RWCString CFG_SynchronizedFileRepository::GetServerNodeName() {
  return m_server.GetServerNodeName();
}
RWCString CFG_SynchronizedFileRepository::GetServerSyncID() { return m_server.GetServerSyncID(); }
void CFG_SynchronizedFileRepository::SetWorkCompressed(bool compressed) {
  m_work_compressed = compressed;
}

int CFG_SynchronizedFileRepository::StartTransactionUpdate() try {
  const int is_begun = m_server.StartTransactionUpdate();
  if (is_begun) m_changes->begin_update();
  return is_begun;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
int CFG_SynchronizedFileRepository::EndTransactionUpdate(bool failed) try {
  const int is_ended = m_server.EndTransactionUpdate(failed);
  end_of_update(true, failed || !is_ended);
  return is_ended;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
int CFG_SynchronizedFileRepository::Rollback() try {
  const int is_done = m_server.Rollback();
  end_of_update(false, true);
  return is_done;
} catch (...) {
  return cfg::answered(logger, FALSE);
}
int CFG_SynchronizedFileRepository::StartTransactionUpdateSecondaryRep() {
  return StartTransactionUpdate();
}
int CFG_SynchronizedFileRepository::EndTransactionUpdateSecondaryRep(bool failed) {
  return EndTransactionUpdate(failed);
}

// What the service has undone, the tree has still.
void CFG_SynchronizedFileRepository::end_of_update(bool is_over, bool is_undone) {
  const std::vector<std::string> changed = m_changes->take_changed();
  for (const std::string& path : is_undone ? changed : std::vector<std::string>()) {
    if (!path.empty()) {
      put_right(RWCString(path));
      continue;
    }
    for (const char* branch : {"halvoria\\system", "halvoria\\conf", "halvoria\\groups"}) {
      put_right(branch);
    }
  }
  if (is_over) m_changes->end_update();
}
