#include <system/Sys_File.h>

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include <system/Sys_FileName.h>

constexpr size_t kPiece = 64 * 1024;

// One that nobody writes a file's content to, and that need not end. Typing into a terminal does,
// and what is always empty has ended.
static bool is_source_without_end(int descriptor, const struct stat& status) {
  const bool is_empty = S_ISCHR(status.st_mode) && status.st_rdev == makedev(1, 3);  // /dev/null
  const bool is_device = S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
  return is_device && !is_empty && !isatty(descriptor);
}

Sys_File::~Sys_File() {
  if (m_descriptor >= 0) close(m_descriptor);
}

bool Sys_File::Exists(const RWWString& name) {
  const RWCString native = Sys_NativeFileName(name);
  struct stat status;
  return Sys_FileNameFault(native).isNull() && stat(native.data(), &status) == 0;
}

bool Sys_File::open(const RWWString& name) {
  if (m_descriptor >= 0) close(m_descriptor);
  m_descriptor = -1;
  m_name = Sys_NativeFileName(name);
  m_error = Sys_FileNameFault(m_name);
  if (!m_error.isNull()) return false;
  m_descriptor = ::open(m_name.data(), O_RDONLY | O_CLOEXEC);
  m_is_missing = m_descriptor < 0 && errno == ENOENT;
  struct stat status;
  if (m_descriptor < 0 || fstat(m_descriptor, &status) != 0) return fail("cannot open");
  if (S_ISDIR(status.st_mode)) return fail("cannot read", "it is a folder");
  if (is_source_without_end(m_descriptor, status)) return fail("cannot read", "it is a device");
  m_is_regular = S_ISREG(status.st_mode);
  m_size = m_is_regular ? static_cast<uint64_t>(status.st_size) : 0;
  m_identity = {status.st_dev, status.st_ino, m_size};
  m_written = status.st_mtim.tv_sec;
  return true;
}

int64_t Sys_File::read(char* buffer, size_t count) {
  ssize_t got;
  do {
    got = ::read(m_descriptor, buffer, count);
  } while (got < 0 && errno == EINTR);
  if (got < 0) fail("cannot read");
  return got;
}

bool Sys_File::rewind() {
  return lseek(m_descriptor, 0, SEEK_SET) == 0 || fail("cannot go back in");
}

bool Sys_File::read_all(std::string& bytes, size_t max_bytes) {
  const std::string limit = "it has more than " + std::to_string(max_bytes) + " bytes";
  if (m_size > max_bytes) return fail("refused to read", limit.c_str());
  std::string read_so_far;
  read_so_far.reserve(std::max(static_cast<size_t>(m_size) + 1, kPiece));
  for (;;) {
    const size_t filled = read_so_far.size();
    const size_t left = read_so_far.capacity() - filled;
    const size_t room = left > 0 ? left : filled;
    read_so_far.resize(filled + room);
    const int64_t got = read(read_so_far.data() + filled, room);
    if (got < 0) return false;
    read_so_far.resize(filled + static_cast<size_t>(got));
    if (got == 0) break;
    if (read_so_far.size() > max_bytes) return fail("refused to read", limit.c_str());
  }
  bytes = std::move(read_so_far);
  return true;
}

bool Sys_File::ReadWhole(const RWWString& name, std::string& bytes, size_t max_bytes,
                         RWCString& error) {
  Sys_File file;
  if (file.open(name) && file.read_all(bytes, max_bytes)) return true;
  error = file.error();
  return false;
}

bool Sys_File::WriteOver(const RWWString& name, std::string_view bytes, RWCString& error) {
  Sys_File file;
  file.m_name = Sys_NativeFileName(name);
  error = Sys_FileNameFault(file.m_name);
  if (!error.isNull()) return false;
  file.m_descriptor = ::open(file.m_name.data(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
  ssize_t written = -1;
  bool is_done = file.m_descriptor >= 0 || file.fail("cannot open");
  if (is_done) {
    do {
      written = pwrite(file.m_descriptor, bytes.data(), bytes.size(), 0);
    } while (written < 0 && errno == EINTR);
    is_done = written >= 0 || file.fail("cannot write");
  }
  if (is_done && static_cast<size_t>(written) != bytes.size()) {
    is_done = file.fail("cannot write", "it was written in part only");
  }
  if (!is_done) error = file.m_error;
  return is_done;
}

bool Sys_File::IsOfOthers(const RWWString& name) {
  const RWCString native = Sys_NativeFileName(name);
  struct stat file, folder;
  if (!Sys_FileNameFault(native).isNull() || lstat(native.data(), &file) != 0) return false;
  if (file.st_uid == geteuid() || file.st_uid == 0) return false;
  return stat(Sys_FolderOf(native).data(), &folder) != 0 || (folder.st_mode & S_IWOTH) != 0;
}

int Sys_File::Remove(const RWWString& name) {
  const RWCString native = Sys_NativeFileName(name);
  if (!Sys_FileNameFault(native).isNull()) return EINVAL;
  return unlink(native.data()) == 0 ? 0 : errno;
}

bool Sys_File::fail(const char* what) {
  return fail(what, std::generic_category().message(errno).c_str());
}

bool Sys_File::fail(const char* what, const char* why) {
  m_error = RWCString(what) + " <" + m_name + ">: " + why;
  return false;
}
