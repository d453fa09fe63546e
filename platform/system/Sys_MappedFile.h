// The bytes of a file without a copy.
#pragma once

#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// A read-only view of a whole file, valid as long as this object. Regular files are
// mapped; pipes and devices are read to their end first. Any number of threads may read
// the view. Failures as Sys_File's.
//
// The mapping follows the file: a process that shortens the file in place while it is
// mapped makes reading beyond the new end fatal (SIGBUS). Files replaced through
// Sys_FileReplacer are never shortened. For files that others edit in place,
// Sys_File::read_all is the safe way.
class HALVORIA_API Sys_MappedFile {
 public:
  Sys_MappedFile() = default;
  ~Sys_MappedFile() { close(); }
  Sys_MappedFile(const Sys_MappedFile&) = delete;
  Sys_MappedFile& operator=(const Sys_MappedFile&) = delete;

  // Files above `max_bytes` are refused.
  bool open(const RWWString& name, size_t max_bytes = size_t(-1) / 2);
  void close();

  const char* data() const { return m_view.data(); }  // never NULL, not NUL-terminated
  size_t size() const { return m_view.size(); }
  std::string_view view() const { return m_view; }

  const RWCString& error() const { return m_error; }

 private:
  void* m_mapping = nullptr;
  std::string m_copy;  // of a pipe or device
  std::string_view m_view{""};
  RWCString m_error;
};
