#include <system/Sys_FileName.h>

#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <system_error>

RWCString Sys_NativeFileName(const RWWString& name) {
  RWCString native = name.toUTF8();
  struct stat status;
  if (native.first('\\') == RWCString::npos || lstat(native.data(), &status) == 0) return native;
  std::string text = native.str();
  std::replace(text.begin(), text.end(), '\\', '/');
  return text;
}

RWCString Sys_AbsoluteFileName(const RWCString& native_name) {
  std::error_code failed;
  const std::string name = std::filesystem::absolute(native_name.str(), failed).string();
  return failed ? native_name : RWCString(name);
}

RWCString Sys_FileIdentity(const RWCString& native_name) {
  struct stat status;
  if (stat(native_name.data(), &status) != 0) return RWCString();
  return std::to_string(status.st_dev) + ":" + std::to_string(status.st_ino);
}

RWCString Sys_FolderOf(const RWCString& native_name) {
  const size_t slash = native_name.last('/');
  if (slash == RWCString::npos) return ".";
  return slash == 0 ? "/" : native_name.subString(0, slash);
}

RWCString Sys_FileNameFault(const RWCString& native_name) {
  if (native_name.isNull()) return "the file name is empty";
  if (native_name.first('\0') != RWCString::npos) {
    return "file name <" + RWCString(native_name.data()) + "> goes on after a NUL byte";
  }
  return RWCString();
}
