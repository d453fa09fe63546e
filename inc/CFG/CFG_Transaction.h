// A transaction on a repository, for a scope, with its own lines in the log.
#pragma once

#include <strings/Export.h>

class CFG_RepositoryServices;

// The repository is not owned; with null the object does nothing. A copy has the same repository
// and neither starts nor ends anything; an object that is assigned to ends what it started itself.
// Used on the thread that made it.
class HALVORIA_API CFG_Transaction {
 public:
  explicit CFG_Transaction(CFG_RepositoryServices* repository);
  CFG_Transaction(const CFG_Transaction& other);
  CFG_Transaction& operator=(const CFG_Transaction& other);
  ~CFG_Transaction();

 protected:
  void StartTransaction();
  void EndTransaction();

 private:
  CFG_RepositoryServices* m_repository;
  CFG_RepositoryServices* m_started = nullptr;  // whose transaction this object ends
};
