#include <system/Sys_MappedFile.h>

#include <sys/mman.h>

#include <cerrno>
#include <system_error>

#include <system/Sys_File.h>

bool Sys_MappedFile::open(const RWWString& name, size_t max_bytes) {
  close();
  Sys_File file;
  if (!file.open(name)) {
    m_error = file.error();
    return false;
  }
  // A size of 0 is also what pipes, devices and the files of /proc announce.
  if (file.size() == 0 || file.size() > max_bytes) {
    if (!file.read_all(m_copy, max_bytes)) {
      m_error = file.error();
      return false;
    }
    m_view = m_copy;
    return true;
  }
  const auto size = static_cast<size_t>(file.size());
  void* mapping = mmap(nullptr, size, PROT_READ, MAP_PRIVATE, file.descriptor(), 0);
  if (mapping == MAP_FAILED) {
    const std::string why = std::generic_category().message(errno);
    m_error = "cannot map <" + file.name() + ">: " + RWCString(why);
    return false;
  }
  madvise(mapping, size, MADV_SEQUENTIAL);
  m_mapping = mapping;
  m_view = {static_cast<const char*>(mapping), size};
  return true;
}

void Sys_MappedFile::close() {
  if (m_mapping) munmap(m_mapping, m_view.size());
  m_mapping = nullptr;
  m_copy.clear();
  m_view = "";
}
