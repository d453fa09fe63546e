// A synced file on disk.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include <CFG/sync/file_header.h>
#include <CFG/sync/file_sums.h>
#include <strings/RWWString.h>
#include <system/Sys_File.h>
#include <utility/Tmr_LockFileGuard.h>

namespace cfg {

// A header and data behind it, with companions in the same folder: FILE.sum, FILE.old (the
// generation before, with its header) and FILE.LOCK, whose lock is shared while the file is
// read and held alone while it is written. Whoever fails says why in `error`. One thread.
class synced_file {
 public:
  enum Generation { NEWEST, OLD };
  class Reader;

  explicit synced_file(RWWString name) : m_name(std::move(name)) {}

  const RWWString& name() const { return m_name; }
  RWWString name(Generation generation) const {
    return generation == NEWEST ? m_name : companion(".old");
  }
  RWWString companion(const char* suffix) const;  // FILE.sum, FILE.old, FILE.LOCK

  // Puts a new generation in place, and keeps the one before. The old file or the new one is
  // there, whole, whatever happens meanwhile.
  bool save(std::string_view header, std::string_view data, RWCString& error) const;
  // Writes another header in front of the data. OTHER, and nothing is written, when the file is no
  // longer the one of that identity and header.
  enum Outcome { DONE, OTHER, FAILED };
  Outcome save_header(std::string_view header, const Sys_File::Identity& identity,
                      std::string_view header_before, RWCString& error) const;
  // Deletes a generation, unless another file has its name by now: 0, or the system's error.
  int remove(Generation generation, const Sys_File::Identity& identity) const;

 private:
  bool are_of_others(RWCString& error) const;
  file_sums sums_beside(const RWWString& name) const;

  const RWWString m_name;
};

// A generation of the file, from its opening on.
class synced_file::Reader {
 public:
  Reader(const synced_file& file, Generation generation);

  // Takes the lock and reads the header. False when there is no such file, or it is not usable.
  bool open();
  // The same; where there is no lock file, none is made.
  bool open_as_is();
  bool is_missing() const { return m_file.is_missing(); }
  // Lets go of the lock when the data is read, before it looks whether it agrees with the sums.
  bool read_data(std::unique_ptr<char[]>& data);

  bool has_sums() const { return m_has_sums; }
  const Synced_Cfg_File_Header& header() const { return m_header; }
  const std::string& header_bytes() const { return m_header_bytes; }
  size_t data_length() const { return m_data_length; }
  const Sys_File::Identity& identity() const { return m_identity; }
  int64_t written() const { return m_file.written(); }  // seconds since 1970
  const RWWString& name() const { return m_name; }
  const RWCString& error() const { return m_error; }

 private:
  bool open_file();
  bool read(char* to, size_t count);
  bool read_sums();
  bool fail(const RWCString& why);

  const RWWString m_name, m_sums_name, m_lock_name;
  Tmr_LockFileGuard m_lock;
  Sys_File m_file;
  Sys_File::Identity m_identity;
  std::string m_header_bytes;
  Synced_Cfg_File_Header m_header;
  size_t m_data_length = 0;
  bool m_has_sums = false;
  file_sums m_sums;
  RWCString m_error;
};

}  // namespace cfg
