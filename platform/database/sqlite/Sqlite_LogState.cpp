#include <database/sqlite/Sqlite_LogState.h>

#include <cstddef>

namespace {

constexpr int kRegion = 32 * 1024;  // in which pieces the index is mapped
constexpr std::size_t kIsInit = 3;  // the word with the byte that says that there is an index

}  // namespace

void Sqlite_LogState::attach(sqlite3* handle) {
  sqlite3_file* file = nullptr;
  m_index = nullptr;
  if (sqlite3_file_control(handle, "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK) return;
  if (!file || !file->pMethods || file->pMethods->iVersion < 2) return;
  void volatile* region = nullptr;
  if (file->pMethods->xShmMap(file, 0, kRegion, 0, &region) != SQLITE_OK) return;
  m_index = static_cast<const volatile uint32_t*>(region);
}

// Who changes it writes the second copy first, so that equal copies were not being changed. The
// loads keep their order; a fence between them is nothing that the thread sanitizer knows.
bool Sqlite_LogState::read(State& state) const {
  if (!m_index) return false;
  const auto load = [this](std::size_t i) {
    return __atomic_load_n(&m_index[i], __ATOMIC_SEQ_CST);
  };
  State second;
  for (std::size_t i = 0; i < state.size(); ++i) state[i] = load(i);
  for (std::size_t i = 0; i < state.size(); ++i) second[i] = load(state.size() + i);
  return state == second && state[kIsInit] != 0;
}
