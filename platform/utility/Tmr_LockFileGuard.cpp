#include <utility/Tmr_LockFileGuard.h>

#include <logging/Logger.h>
#include <system/Sys_FileLock.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_LockFileGuard", 502);

}  // namespace

Tmr_LockFileGuard::Tmr_LockFileGuard(const RWWString& lock_file, int type)
    : m_file(lock_file), m_type(type), m_lock(std::make_unique<Sys_FileLock>()) {}

Tmr_LockFileGuard::~Tmr_LockFileGuard() = default;

bool Tmr_LockFileGuard::Lock(std::chrono::milliseconds limit) {
  const bool is_shared = m_type == SHARED;
  switch (m_lock->take(m_file, is_shared ? Sys_FileLock::SHARED : Sys_FileLock::ALONE, limit)) {
    case Sys_FileLock::TAKEN:
      return true;
    case Sys_FileLock::HELD_BY_OTHERS:
      return logger.reject(false, "Lock() : others hold lock file <%S>, no %s lock after %lld ms\n",
                           m_file, is_shared ? "shared" : "exclusive",
                           static_cast<long long>(limit.count()));
    case Sys_FileLock::FAILED:
      break;
  }
  return logger.reject(false, "Lock() : %s\n", m_lock->error());
}

void Tmr_LockFileGuard::Release() { m_lock->release(); }

bool Tmr_LockFileGuard::IsLocked() const { return m_lock->is_held(); }

void Tmr_LockFileGuard::SetType(int type) {
  Release();
  m_type = type;
}

int Tmr_LockFileGuard::ReleaseAndDelete() { return m_lock->release_and_delete(); }
