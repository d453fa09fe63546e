#include <system/Sys_Registry.h>

#include <string>

#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <system/Sys_FileLock.h>
#include <system/Sys_FileName.h>
#include <system/Sys_FileReplacer.h>
#include <system/Sys_Folder.h>
#include <system/Sys_RegistryText.h>

namespace {

constexpr Log_Logger logger("platform/system/Sys_Registry", 502);

constexpr std::chrono::seconds kLimit{10};  // for the changes of others
constexpr int kMaxComplaints = 20;          // about the lines of one file

bool read(const RWWString& file, Sys_RegistryText& registry) {
  std::string text;
  Sys_File source;
  const bool is_read = source.open(file) && source.read_all(text, Sys_Registry::MAX_BYTES);
  if (!is_read && !source.is_missing()) {
    return logger.reject(false, "registry: %s\n", source.error());
  }
  int complaints = 0;
  registry.parse(text, [&](int line, const char* what) {
    if (++complaints > kMaxComplaints) return;
    logger.warning("registry <%S> line %d is left out: %s\n", file, line, what);
  });
  if (complaints > kMaxComplaints) {
    logger.warning("registry <%S> has %d such lines\n", file, complaints);
  }
  return true;
}

bool write(const RWWString& file, const std::string& text) {
  if (text.size() > Sys_Registry::MAX_BYTES) {
    return logger.reject(false, "registry <%S> would have %Iu bytes, more than the %Iu allowed\n",
                         file, text.size(), Sys_Registry::MAX_BYTES);
  }
  Sys_FileReplacer replacer(file);
  replacer.write(text);
  return replacer.commit() || logger.reject(false, "registry: %s\n", replacer.error());
}

// `change` answers whether it changed anything.
template <class Change>
bool changed(const RWCString& key, const Change& change) {
  if (!Sys_RegistryText::is_key(key.view())) {
    return logger.reject(false, "registry: <%s> cannot be the name of a key\n", key);
  }
  const RWWString file = Sys_Registry::FileOf(key);
  RWCString error;
  const RWCString folder = Sys_FolderOf(Sys_NativeFileName(file));
  if (!Sys_MakeFolders(RWWString::fromUTF8(folder), 0755, error)) {
    return logger.reject(false, "registry: %s\n", error);
  }
  Sys_FileLock lock;
  switch (lock.take(file + L".LOCK", Sys_FileLock::ALONE, kLimit)) {
    case Sys_FileLock::TAKEN:
      break;
    case Sys_FileLock::HELD_BY_OTHERS:
      return logger.reject(false, "registry <%S> is being changed by others, nothing is changed\n",
                           file);
    case Sys_FileLock::FAILED:
      return logger.reject(false, "registry: %s\n", lock.error());
  }
  Sys_RegistryText registry;
  if (!read(file, registry)) return false;
  return !change(registry) || write(file, registry.text());
}

}  // namespace

RWWString Sys_Registry::FileOf(const RWCString&) {
  RWCString file;
  const bool is_told = Sys_Environment::Get("HALVORIA_REGISTRY", file) && !file.isNull();
  return is_told ? RWWString::fromUTF8(file) : RWWString(L"/etc/halvoria/registry");
}

bool Sys_Registry::GetValue(const RWCString& key, const RWCString& name, RWCString& value) {
  Sys_RegistryText registry;
  if (!read(FileOf(key), registry)) return false;
  const std::string* const found = registry.find(key.view(), name.view());
  if (found) value = *found;
  return found != nullptr;
}

bool Sys_Registry::SetValue(const RWCString& key, const RWCString& name, const RWCString& value) {
  return changed(key, [&](Sys_RegistryText& registry) {
    registry.set(key.view(), name.view(), value.view());
    return true;
  });
}

bool Sys_Registry::DeleteValue(const RWCString& key, const RWCString& name) {
  return !Sys_File::Exists(FileOf(key)) || changed(key, [&](Sys_RegistryText& registry) {
    return registry.remove(key.view(), name.view());
  });
}

bool Sys_Registry::DeleteKey(const RWCString& key) {
  return !Sys_File::Exists(FileOf(key)) ||
         changed(key, [&](Sys_RegistryText& registry) { return registry.remove_key(key.view()); });
}
