// A transaction on a repository, for as long as this object lives.
#pragma once

#include <strings/Export.h>

class CFG_RepositoryServices;

// The repository is not owned. Whether its transaction could start is not looked at: a
// started object always ends it, once. A copy has the same repository and neither starts nor
// ends anything; an object that is assigned to ends what it started itself. Used on the thread that
// made it.
class HALVORIA_API CFG_RepositoryTransaction {
 public:
  explicit CFG_RepositoryTransaction(CFG_RepositoryServices* repository);
  CFG_RepositoryTransaction() = default;  // idle until SetRepositoryServices
  CFG_RepositoryTransaction(const CFG_RepositoryTransaction& other);
  CFG_RepositoryTransaction& operator=(const CFG_RepositoryTransaction& other);
  ~CFG_RepositoryTransaction();

  // Starts on `repository`; a transaction started on another one before is not ended.
  void SetRepositoryServices(CFG_RepositoryServices* repository);
  bool WasRepositorySet();

 protected:
  void StartTransaction();
  void EndTransaction();

 private:
  CFG_RepositoryServices* m_repository = nullptr;
  CFG_RepositoryServices* m_started = nullptr;  // whose transaction this object ends
};
