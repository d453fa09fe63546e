#include <system/Sys_FileReplacer.h>

#include <fcntl.h>
#include <limits.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <string>
#include <system_error>

#include <system/Sys_Descriptor.h>
#include <system/Sys_FileName.h>

namespace {

constexpr size_t kBufferSize = 256 * 1024;
constexpr uint64_t kBytesToSend = 8 * 1024 * 1024;
constexpr int kMaxLinks = 40;  // as the kernel

// A descriptor that the process was given under a file name, or -1.
int descriptor_in(const RWCString& name) {
  int descriptor = -1;
  int length = 0;
  for (const char* format : {"/proc/self/fd/%9d%n", "/dev/fd/%9d%n"}) {
    if (sscanf(name.data(), format, &descriptor, &length) == 1 && name.data()[length] == '\0') {
      return descriptor;
    }
  }
  return -1;
}

// write(2) to a file that may not grow beyond a limit of the process fails as on a full disk: the
// signal that comes along would end the process.
ssize_t write_some(int descriptor, std::string_view bytes) {
  sigset_t signal, before, pending;
  sigemptyset(&signal);
  sigaddset(&signal, SIGXFSZ);
  pthread_sigmask(SIG_BLOCK, &signal, &before);
  sigpending(&pending);
  const ssize_t written = ::write(descriptor, bytes.data(), bytes.size());
  const int reason = errno;
  const bool is_ours = written < 0 && reason == EFBIG && !sigismember(&pending, SIGXFSZ);
  constexpr timespec no_time = {};
  if (is_ours) sigtimedwait(&signal, nullptr, &no_time);
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  errno = reason;
  return written;
}

// ".NAME.XXXXXX.tmp" in the target's folder; a long NAME is cut to what a folder can hold.
RWCString temporary_name(const RWCString& target) {
  constexpr char letters[] = "abcdefghijklmnopqrstuvwxyz0123456789";
  std::string name = ".";
  name += target.subString(target.last('/') + 1, NAME_MAX - 12);
  name += '.';
  for (int i = 0; i < 6; ++i) name += letters[arc4random_uniform(sizeof letters - 1)];
  return Sys_FolderOf(target) + "/" + RWCString(name + ".tmp");
}

}  // namespace

Sys_FileReplacer::~Sys_FileReplacer() { discard(); }

bool Sys_FileReplacer::open(const RWWString& name) {
  if (!m_error.isNull()) return false;
  m_target = Sys_NativeFileName(name);
  if (m_descriptor >= 0) return fail("cannot open", "another file is being written");
  m_error = Sys_FileNameFault(m_target);
  if (!m_error.isNull()) return false;
  m_buffer = std::make_unique<char[]>(kBufferSize);
  struct stat status;
  // A pipe or device is opened by the name given: what its links say is no path.
  if (stat(m_target.data(), &status) == 0 && !S_ISREG(status.st_mode) && !S_ISDIR(status.st_mode)) {
    return open_through();
  }
  if (!resolve_links()) return false;
  if (descriptor_in(m_target) >= 0) return open_through();
  return check_target() && create_temporary();
}

// Follows m_target to the file itself, which need not exist yet. Stops at a name of one
// of our descriptors, which leads to an open file and not to a name that could be replaced.
bool Sys_FileReplacer::resolve_links() {
  for (int i = 0; i < kMaxLinks; ++i) {
    if (descriptor_in(m_target) >= 0) return true;
    char text[PATH_MAX];
    const ssize_t length = readlink(m_target.data(), text, sizeof text);
    if (length < 0) return errno == EINVAL || errno == ENOENT ? true : fail("cannot find");
    const RWCString link(text, static_cast<size_t>(length));
    m_target = link(0) == '/' ? link : Sys_FolderOf(m_target) + "/" + link;
  }
  errno = ELOOP;
  return fail("cannot find");
}

bool Sys_FileReplacer::check_target() {
  struct stat status;
  m_target_exists = stat(m_target.data(), &status) == 0;
  if (!m_target_exists && errno != ENOENT) return fail("cannot find");
  if (m_target_exists) {
    if (S_ISDIR(status.st_mode)) return fail("cannot replace", "it is a folder");
    if (!may_write(m_target, status.st_mode, "it is read-only")) return false;
    m_mode = status.st_mode & 07777;
    m_owner = status.st_uid;
    m_group = status.st_gid;
  }
  const RWCString folder = Sys_FolderOf(m_target);
  if (stat(folder.data(), &status) != 0) return fail("no folder to write");
  return may_write(folder, status.st_mode, "its folder is read-only");
}

// The administrator is stopped by no permission; where nobody may write, neither do we.
bool Sys_FileReplacer::may_write(const RWCString& name, unsigned mode, const char* read_only) {
  if ((mode & (S_IWUSR | S_IWGRP | S_IWOTH)) == 0) return fail("cannot replace", read_only);
  return faccessat(AT_FDCWD, name.data(), W_OK, AT_EACCESS) == 0 || fail("cannot replace");
}

bool Sys_FileReplacer::open_through() {
  // Opening a name like /dev/stdout anew would start over at the beginning of the file
  // behind it, on top of what was written before.
  const bool linked = m_target == "/dev/stdout" || m_target == "/dev/stderr";
  const int given = linked ? (m_target == "/dev/stdout" ? 1 : 2) : descriptor_in(m_target);
  m_descriptor =
      Sys_BesideStreams(given >= 0 ? fcntl(given, F_DUPFD_CLOEXEC, 0)
                                   : ::open(m_target.data(), O_WRONLY | O_CLOEXEC | O_NOCTTY));
  return m_descriptor >= 0 || fail("cannot open");
}

bool Sys_FileReplacer::create_temporary() {
  constexpr int flags = O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW;
  // A new file gets what the umask and the folder say. One that takes the place of
  // another is ours alone until it has the old one's permissions.
  const mode_t mode = m_target_exists ? 0600 : 0666;
  do {
    m_temporary = temporary_name(m_target);
    m_descriptor = Sys_BesideStreams(::open(m_temporary.data(), flags, mode));
  } while (m_descriptor < 0 && errno == EEXIST);
  if (m_descriptor < 0) {
    m_temporary.clear();
    return fail("cannot create a temporary file beside");
  }
  if (!m_target_exists) return true;
  if (fchown(m_descriptor, m_owner, m_group) != 0) {
    // Only the administrator gives files away; the new file is ours then.
  }
  return fchmod(m_descriptor, m_mode) == 0 || fail("cannot keep the permissions of");
}

bool Sys_FileReplacer::write(std::string_view bytes) {
  if (m_descriptor < 0) return fail("cannot write", "it is not open");
  if (bytes.size() > kBufferSize - m_filled && !flush()) return false;
  if (bytes.size() >= kBufferSize) return write_out(bytes);
  memcpy(m_buffer.get() + m_filled, bytes.data(), bytes.size());
  m_filled += bytes.size();
  return true;
}

bool Sys_FileReplacer::flush() {
  const std::string_view filled(m_buffer.get(), m_filled);
  m_filled = 0;
  return write_out(filled);
}

bool Sys_FileReplacer::write_out(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = write_some(m_descriptor, bytes);
    if (written >= 0) {
      bytes.remove_prefix(static_cast<size_t>(written));
      m_written += static_cast<uint64_t>(written);
    } else if (errno != EINTR) {
      return fail("cannot write");
    }
  }
  send_to_disk();
  return true;
}

// The disk begins while more bytes come, and the sync at the end is short. Only a hint.
void Sys_FileReplacer::send_to_disk() {
  if (m_temporary.isNull() || m_written - m_sent < kBytesToSend) return;
  sync_file_range(m_descriptor, static_cast<off64_t>(m_sent),
                  static_cast<off64_t>(m_written - m_sent), SYNC_FILE_RANGE_WRITE);
  m_sent = m_written;
}

bool Sys_FileReplacer::commit(const RWWString& old_file) {
  if (m_descriptor < 0) return fail("cannot write", "it is not open");
  if (!flush()) return false;
  const bool replaces = !m_temporary.isNull();
  if (replaces && fsync(m_descriptor) != 0) return fail("cannot sync");
  const int descriptor = m_descriptor;
  m_descriptor = -1;
  if (::close(descriptor) != 0) return fail("cannot write");
  if (!replaces) return true;
  if (m_target_exists && !old_file.isNull()) keep_old(old_file);
  if (rename(m_temporary.data(), m_target.data()) != 0) return fail("cannot put the new file over");
  m_temporary.clear();
  return sync_folder();
}

// Under its second name the old file goes over what had that name, in one step. That step does
// nothing where both are the same file already, and leaves the name that it was to take away.
void Sys_FileReplacer::keep_old(const RWWString& name) {
  const RWCString old_file = Sys_NativeFileName(name);
  const RWCString second = temporary_name(old_file);
  if (link(m_target.data(), second.data()) != 0) return;
  rename(second.data(), old_file.data());
  unlink(second.data());
}

// Without it the old file could be back after a loss of power.
bool Sys_FileReplacer::sync_folder() {
  const int folder = ::open(Sys_FolderOf(m_target).data(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  // A folder that may be written but not listed, or a file system that cannot sync folders.
  if (folder < 0 && errno == EACCES) return true;
  const bool synced = folder >= 0 && (fsync(folder) == 0 || errno == EINVAL || errno == ENOTSUP);
  const int reason = errno;
  if (folder >= 0) ::close(folder);
  errno = reason;
  return synced || fail("replaced, but cannot sync the folder of");
}

void Sys_FileReplacer::discard() {
  if (m_descriptor >= 0) ::close(m_descriptor);
  if (!m_temporary.isNull()) unlink(m_temporary.data());
  m_descriptor = -1;
  m_temporary.clear();
}

bool Sys_FileReplacer::fail(const char* what) {
  return fail(what, std::generic_category().message(errno).c_str());
}

bool Sys_FileReplacer::fail(const char* what, const char* why) {
  if (m_error.isNull()) m_error = RWCString(what) + " <" + m_target + ">: " + why;
  discard();
  return false;
}
