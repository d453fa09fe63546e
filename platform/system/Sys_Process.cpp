#include <system/Sys_Process.h>

#include <fcntl.h>
#include <limits.h>
#include <pwd.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include <system/Sys_Environment.h>

static RWCString executable() {
  char name[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", name, sizeof name);
  return length > 0 ? RWCString(name, static_cast<size_t>(length)) : RWCString();
}

RWCString Sys_ComputerName() {
  char name[HOST_NAME_MAX + 1] = "";
  if (gethostname(name, sizeof name - 1) != 0) return RWCString();
  return name;
}

static RWCString of_user(char* passwd::*field) {
  char buffer[4096];
  passwd entry;
  passwd* found = nullptr;
  getpwuid_r(geteuid(), &entry, buffer, sizeof buffer, &found);
  return found ? RWCString(found->*field) : RWCString();
}

RWCString Sys_UserName() { return of_user(&passwd::pw_name); }

RWCString Sys_HomeFolder() {
  RWCString home;
  const bool is_told = Sys_Environment::Get("HOME", home) && !home.isNull();
  return is_told ? home : of_user(&passwd::pw_dir);
}

bool Sys_IsAdministrator() { return geteuid() == 0; }

int64_t Sys_AllowMostFiles() {
  constexpr rlim_t all = INT_MAX;  // no limit, too: descriptors are numbers of this type
  rlimit limit{};
  if (getrlimit(RLIMIT_NOFILE, &limit) != 0) return INT_MAX;
  const rlimit raised{limit.rlim_max, limit.rlim_max};
  if (setrlimit(RLIMIT_NOFILE, &raised) == 0) limit = raised;
  return static_cast<int64_t>(std::min(limit.rlim_cur, all));
}

// The lowest number that is free is taken each time.
void Sys_KeepStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    if (fcntl(stream, F_GETFD) >= 0) continue;
    if (open("/dev/null", stream == STDIN_FILENO ? O_WRONLY : O_RDONLY) != stream) return;
  }
}

int Sys_ProcessId() { return getpid(); }
void Sys_EndProcess(int code) { _exit(code); }

RWWString Sys_ExecutableFile() { return RWWString::fromUTF8(executable()); }

RWCString Sys_ProcessName() {
  const RWCString file = executable();
  return file.subString(file.last('/') + 1);  // npos + 1 is 0
}
