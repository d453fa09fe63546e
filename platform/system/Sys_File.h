// Reading files.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// A file open for reading; closed with this object. Either path separator serves
// (Sys_NativeFileName). One thread at a time. Nothing throws except for want of
// memory; a failed call returns false and leaves the reason in `error`: what was
// tried, the file's name and the system's reason.
class HALVORIA_API Sys_File {
 public:
  Sys_File() = default;
  ~Sys_File();
  Sys_File(const Sys_File&) = delete;
  Sys_File& operator=(const Sys_File&) = delete;

  static bool Exists(const RWWString& name);  // anything of that name, folders too

  // Opens a file, pipe, terminal or /dev/null; folders are refused, and devices, which need not
  // end.
  bool open(const RWWString& name);
  bool is_missing() const { return m_is_missing; }  // why it was not opened: there is none

  bool is_regular() const { return m_is_regular; }
  uint64_t size() const { return m_size; }  // when it was opened; 0 for a pipe
  int descriptor() const { return m_descriptor; }

  // Up to `count` bytes from where the last read ended: how many, 0 at the end, -1 on failure.
  int64_t read(char* buffer, size_t count);

  // The next read begins at the front of the file again. Not for pipes.
  bool rewind();

  // Everything from where the last read ended; refused when it is more than `max_bytes`.
  // `bytes` is left alone on failure. Trusts the bytes that come, not the announced size.
  bool read_all(std::string& bytes, size_t max_bytes);

  // open and read_all in one.
  static bool ReadWhole(const RWWString& name, std::string& bytes, size_t max_bytes,
                        RWCString& error);

  // Which file it is and what is in it, as far as the system tells without reading it: two files
  // of one name with the same identity have the same bytes, but for what is written over in place.
  struct Identity {
    uint64_t device = 0, number = 0, size = 0;
    bool operator==(const Identity& other) const {
      return device == other.device && number == other.number && size == other.size;
    }
  };
  Identity identity() const { return m_identity; }
  // When it was written last, before it was opened; seconds since 1970.
  int64_t written() const { return m_written; }

  // Writes over the first bytes of a file that has as many at least, in one call to the system.
  static bool WriteOver(const RWWString& name, std::string_view bytes, RWCString& error);

  // Whether another user may have put it there for us to find: everybody may write to its folder,
  // and it (a link, not what that leads to) belongs neither to us nor to the administrator.
  static bool IsOfOthers(const RWWString& name);

  // Deletes a file of that name: 0 or the system's error.
  static int Remove(const RWWString& name);

  const RWCString& error() const { return m_error; }
  const RWCString& name() const { return m_name; }  // as the system knows it

 private:
  bool fail(const char* what);  // with the reason in errno
  bool fail(const char* what, const char* why);

  int m_descriptor = -1;
  bool m_is_missing = false;
  bool m_is_regular = false;
  uint64_t m_size = 0;
  Identity m_identity;
  int64_t m_written = 0;
  RWCString m_name;
  RWCString m_error;
};
