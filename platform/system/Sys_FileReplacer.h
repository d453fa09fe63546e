// The way every file of the installation is replaced.
#pragma once

#include <cstdint>
#include <memory>
#include <string_view>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// Writes a file so that, at any moment and after any failure, the target holds either
// all of its old bytes or all of the new ones: the bytes go to a temporary file in the
// target's folder, which `commit` syncs and renames over the target. Without a
// successful commit the temporary is removed with this object and the target is as it
// was; a process killed meanwhile leaves the temporary behind, named ".NAME.XXXXXX.tmp"
// (X: a letter or digit), which anybody may delete.
//
// A symbolic link stays and the file it leads to is replaced. Permissions and, as far as
// we may, owner of the old file are kept; other hard links keep the old bytes. A folder, a
// file without write permission (for anybody, or for us) and a folder that may not be
// written are refused. A limit on the size of files is a failure, whatever the process does with
// SIGXFSZ. A target that is no regular file (/dev/stdout, a pipe, a
// terminal) is written straight through, as there is nothing to replace.
//
// One thread at a time. After the first failure every call returns false; `error` keeps
// the first reason: what was tried, the file's name and the system's reason.
class HALVORIA_API Sys_FileReplacer {
 public:
  Sys_FileReplacer() = default;
  explicit Sys_FileReplacer(const RWWString& name) { open(name); }
  ~Sys_FileReplacer();
  Sys_FileReplacer(const Sys_FileReplacer&) = delete;
  Sys_FileReplacer& operator=(const Sys_FileReplacer&) = delete;

  // Checks the target and creates the temporary; either path separator serves
  // (Sys_NativeFileName). An object is good for one file.
  bool open(const RWWString& name);
  bool is_open() const { return m_descriptor >= 0; }  // opened, and nothing failed so far

  // Appends. Buffered in large pieces: call it with pieces as small as you like.
  bool write(std::string_view bytes);

  // Puts the new file in place, safe against loss of power once it returns true.
  bool commit() { return commit(RWWString()); }
  // The old file gets the name `old_file`, in its folder, before the new one takes its own: what
  // had that name goes. Where there is no old file, or the file system cannot give one a second
  // name, nothing has it afterwards but what had it before.
  bool commit(const RWWString& old_file);

  const RWCString& error() const { return m_error; }

 private:
  bool resolve_links();
  bool check_target();
  bool may_write(const RWCString& name, unsigned mode, const char* read_only);
  bool open_through();
  bool create_temporary();
  bool flush();
  bool write_out(std::string_view bytes);
  void send_to_disk();
  void keep_old(const RWWString& name);
  bool sync_folder();
  void discard();
  bool fail(const char* what);  // with the reason in errno
  bool fail(const char* what, const char* why);

  int m_descriptor = -1;
  bool m_target_exists = false;
  unsigned m_mode = 0, m_owner = 0, m_group = 0;  // of the old file, when it exists
  uint64_t m_written = 0;                         // bytes in the file
  uint64_t m_sent = 0;                            // of them on their way to the disk
  size_t m_filled = 0;
  std::unique_ptr<char[]> m_buffer;
  RWCString m_target;     // behind all links
  RWCString m_temporary;  // empty when written straight through
  RWCString m_error;
};
