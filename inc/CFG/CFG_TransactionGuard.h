// A transaction on a repository or on that of the process, for a scope.
#pragma once

#include <strings/Export.h>

class CFG_RepositoryServices;

// The repository is not owned; where there is none the guard does nothing. Used on the
// thread that made it.
class HALVORIA_API CFG_TransactionGuard {
 public:
  // Null stands for the repository of CFG_Factory.
  explicit CFG_TransactionGuard(CFG_RepositoryServices* repository);
  CFG_TransactionGuard(const CFG_TransactionGuard&) = delete;
  CFG_TransactionGuard& operator=(const CFG_TransactionGuard&) = delete;
  ~CFG_TransactionGuard();

 private:
  CFG_RepositoryServices* m_repository;
};
