#include "files.h"

#include <algorithm>

#include <system/Sys_Process.h>

#include "streams.h"

namespace service {

namespace {

// What is open before the first client comes: streams, the log, what threads wait on, the store.
int64_t open_at_start(const Settings& settings) { return 16 + 6 * settings.threads; }

// What may be opened later: two files for each connection to the store, of the workers, the trees
// on their way, the holder of the lock and the housekeeping, and what is open for a moment only,
// such as the next file of the log, a name that is looked up, the temporary files of the store.
int64_t opened_later(const Settings& settings) {
  return 2 * (settings.workers + Streams::most_stores(settings) + 3) + 32;
}

}  // namespace

Files share_files(Settings& settings) {
  Files files;
  files.limit = Sys_AllowMostFiles();
  while (settings.max_streams > 1 && opened_later(settings) > files.limit / 2) {
    --settings.max_streams;
  }
  files.first_kept = files.limit - opened_later(settings);
  files.sessions = std::min(files.first_kept - open_at_start(settings), settings.max_sessions);
  files.wanted = settings.max_sessions + open_at_start(settings) + opened_later(settings);
  return files;
}

}  // namespace service
