#include <system/Sys_FileSearch.h>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <memory>
#include <string_view>
#include <system_error>

#include <system/Sys_FileName.h>

namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;
using std::chrono::system_clock;

// Where a letter does not fit, the last '*' takes one more; an earlier one need not be asked again.
bool has_form(std::string_view name, std::string_view pattern) {
  size_t in_name = 0, in_pattern = 0, star = pattern.npos, taken = 0;
  while (in_name < name.size()) {
    if (in_pattern < pattern.size() && pattern[in_pattern] == '*') {
      star = in_pattern++;
      taken = in_name;
    } else if (in_pattern < pattern.size() && pattern[in_pattern] == name[in_name]) {
      ++in_pattern;
      ++in_name;
    } else if (star != pattern.npos) {
      in_pattern = star + 1;
      in_name = ++taken;
    } else {
      return false;
    }
  }
  return pattern.find_first_not_of('*', in_pattern) == pattern.npos;
}

Sys_FoundFile found_file(std::string_view name, const struct stat& status) {
  const nanoseconds written = seconds(status.st_mtim.tv_sec) + nanoseconds(status.st_mtim.tv_nsec);
  return {RWWString::fromUTF8(name), static_cast<uint64_t>(status.st_size),
          system_clock::time_point(std::chrono::duration_cast<system_clock::duration>(written))};
}

bool fail(const RWCString& folder, RWCString& error) {
  error = "cannot read folder <" + folder + ">: " + std::generic_category().message(errno);
  return false;
}

}  // namespace

bool Sys_FindFiles(const RWWString& folder, const RWWString& pattern,
                   std::vector<Sys_FoundFile>& found, RWCString& error) {
  const RWCString native = Sys_NativeFileName(folder);
  error = Sys_FileNameFault(native);
  if (!error.isNull()) return false;
  const std::unique_ptr<DIR, int (*)(DIR*)> entries(opendir(native.data()), closedir);
  if (!entries) return fail(native, error);
  const RWCString form = pattern.toUTF8();
  std::vector<Sys_FoundFile> files;
  for (;;) {
    errno = 0;
    const dirent* const entry = readdir(entries.get());
    if (!entry) break;
    struct stat status;
    if (has_form(entry->d_name, form) &&
        fstatat(dirfd(entries.get()), entry->d_name, &status, AT_SYMLINK_NOFOLLOW) == 0 &&
        S_ISREG(status.st_mode)) {
      files.push_back(found_file(entry->d_name, status));
    }
  }
  if (errno != 0) return fail(native, error);
  std::sort(files.begin(), files.end(),
            [](const auto& a, const auto& b) { return a.name < b.name; });
  found = std::move(files);
  return true;
}
