#include <CFG/sync/synced_file.h>

#include <cerrno>

#include <system/Sys_FileReplacer.h>

namespace cfg {

namespace {

constexpr size_t kMostData = size_t{1} << 31;  // what a byte array can have, and its encryption

bool replace(const RWWString& name, std::initializer_list<std::string_view> pieces,
             const RWWString& old_name, RWCString& error) {
  Sys_FileReplacer file(name);
  bool is_written = file.is_open();
  for (const std::string_view piece : pieces) is_written = is_written && file.write(piece);
  if (is_written && file.commit(old_name)) return true;
  error = file.error();
  return false;
}

}  // namespace

// In a folder where others may put files, theirs are neither read nor written over.
static bool is_of_others(const RWWString& name, RWCString& error) {
  if (!Sys_File::IsOfOthers(name)) return false;
  error = "another user has put <" + name.toUTF8() + "> there";
  return true;
}

bool synced_file::are_of_others(RWCString& error) const {
  return is_of_others(m_name, error) || is_of_others(companion(".sum"), error) ||
         is_of_others(name(OLD), error);
}

RWWString synced_file::companion(const char* suffix) const {
  return m_name + RWWString::fromUTF8(RWCString(suffix));
}

// Those of the file that is there, whichever generation it is, as the one before.
file_sums synced_file::sums_beside(const RWWString& name) const {
  file_sums next;
  std::string text, whole;
  RWCString ignored;
  if (!Sys_File::ReadWhole(name, whole, kMostData, ignored)) return next;
  if (whole.size() < Synced_Cfg_File_Header::SIZE) return next;
  const std::string_view header(whole.data(), Synced_Cfg_File_Header::SIZE);
  const std::string_view data = std::string_view(whole).substr(header.size());
  const uint64_t sum = checksum(header);
  next.before = {data.size(), checksum(data), sum, sum};
  file_sums now;
  if (!Sys_File::ReadWhole(companion(".sum"), text, kMostData, ignored)) return next;
  if (!file_sums::read(text, now) || !now.find(data.size(), header)) next.before = {};
  return next;
}

bool synced_file::save(std::string_view header, std::string_view data, RWCString& error) const {
  Tmr_LockFileGuard lock(companion(".LOCK"), Tmr_LockFileGuard::EXCLUSIVE);
  if (!lock.Lock()) {
    error = "its lock file is not to be had";
    return false;
  }
  if (are_of_others(error)) return false;
  file_sums sums = sums_beside(m_name);
  const uint64_t header_sum = checksum(header);
  sums.newest = {data.size(), checksum(data), header_sum, header_sum};
  return replace(companion(".sum"), {sums.text()}, RWWString(), error) &&
         replace(m_name, {header, data}, name(OLD), error);
}

synced_file::Outcome synced_file::save_header(std::string_view header,
                                              const Sys_File::Identity& identity,
                                              std::string_view header_before,
                                              RWCString& error) const {
  Tmr_LockFileGuard lock(companion(".LOCK"), Tmr_LockFileGuard::EXCLUSIVE);
  if (!lock.Lock()) {
    error = "its lock file is not to be had";
    return FAILED;
  }
  if (are_of_others(error)) return FAILED;
  Sys_File file;
  std::string there(header.size(), '\0');
  if (!file.open(m_name) || !(file.identity() == identity)) return OTHER;
  if (file.read(there.data(), there.size()) != static_cast<int64_t>(there.size())) return OTHER;
  if (there != header_before) return OTHER;
  std::string text;
  file_sums sums;
  if (Sys_File::ReadWhole(companion(".sum"), text, kMostData, error)) {
    auto* const generation =
        file_sums::read(text, sums) ? sums.find(identity.size - header.size(), there) : nullptr;
    if (!generation) return OTHER;
    generation->header_before = checksum(there);
    generation->header = checksum(header);
    if (!Sys_File::WriteOver(companion(".sum"), sums.text(), error)) return FAILED;
  } else if (Sys_File::Exists(companion(".sum"))) {
    return FAILED;
  }
  return Sys_File::WriteOver(m_name, header, error) ? DONE : FAILED;
}

int synced_file::remove(Generation generation, const Sys_File::Identity& identity) const {
  Tmr_LockFileGuard lock(companion(".LOCK"), Tmr_LockFileGuard::EXCLUSIVE);
  if (!lock.Lock()) return EAGAIN;
  Sys_File file;
  if (!file.open(name(generation))) return file.is_missing() ? 0 : EACCES;
  return file.identity() == identity ? Sys_File::Remove(name(generation)) : 0;
}

synced_file::Reader::Reader(const synced_file& file, Generation generation)
    : m_name(file.name(generation)),
      m_sums_name(file.companion(".sum")),
      m_lock_name(file.companion(".LOCK")),
      m_lock(m_lock_name, Tmr_LockFileGuard::SHARED) {}

bool synced_file::Reader::open() {
  // Where nobody may make a lock file, nobody writes either.
  m_lock.Lock();
  return open_file();
}

bool synced_file::Reader::open_as_is() {
  return Sys_File::Exists(m_lock_name) ? open() : open_file();
}

bool synced_file::Reader::open_file() {
  m_header_bytes.assign(Synced_Cfg_File_Header::SIZE, '\0');
  if (!m_file.open(m_name)) return fail(m_file.error());
  m_identity = m_file.identity();
  RWCString why;
  if (is_of_others(m_name, why) || is_of_others(m_sums_name, why)) return fail(why);
  if (!m_file.is_regular()) return fail("it is no regular file");
  if (m_file.size() < m_header_bytes.size()) return fail("it is shorter than its header");
  if (m_file.size() - m_header_bytes.size() > kMostData) return fail("it is too long");
  m_data_length = m_file.size() - m_header_bytes.size();
  if (!read(m_header_bytes.data(), m_header_bytes.size()) || !read_sums()) return false;
  m_header = Synced_Cfg_File_Header::read(m_header_bytes);
  return true;
}

bool synced_file::Reader::read_sums() {
  std::string text;
  RWCString error;
  m_has_sums = Sys_File::Exists(m_sums_name);
  if (!m_has_sums) return true;
  if (!Sys_File::ReadWhole(m_sums_name, text, kMostData, error)) return fail(error);
  // One of two lines that is damaged leaves the other.
  text.resize(file_sums::SIZE);
  const std::string none = file_sums().text().substr(file_sums::SIZE / 2);
  const std::string first = text.substr(0, none.size()), second = text.substr(none.size());
  if (!file_sums::read(text, m_sums) && !file_sums::read(first + none, m_sums) &&
      !file_sums::read(none + second, m_sums)) {
    return fail("its checksums cannot be read");
  }
  return m_sums.find(m_data_length, m_header_bytes) || fail("its header has another checksum");
}

bool synced_file::Reader::read_data(std::unique_ptr<char[]>& data) {
  data.reset(new char[m_data_length + 1]);
  const bool is_read = read(data.get(), m_data_length);
  m_lock.Release();
  if (!is_read) return false;
  if (!m_has_sums) return true;
  const auto* const sums = m_sums.find(m_data_length, m_header_bytes);
  return sums->data == checksum({data.get(), m_data_length}) ||
         fail("its data has another checksum");
}

bool synced_file::Reader::read(char* to, size_t count) {
  for (size_t filled = 0; filled < count;) {
    const int64_t got = m_file.read(to + filled, count - filled);
    if (got < 0) return fail(m_file.error());
    if (got == 0) return fail("it was cut while it was read");
    filled += static_cast<size_t>(got);
  }
  return true;
}

bool synced_file::Reader::fail(const RWCString& why) {
  m_error = why;
  m_lock.Release();
  return false;
}

}  // namespace cfg
