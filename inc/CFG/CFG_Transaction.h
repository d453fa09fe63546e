// A transaction on a repository, for a scope, with its own lines in the log.
#pragma once

#include <strings/Export.h>

class CFG_RepositoryServices;

// The repository is not owned; with null the object does nothing. Used on the thread that
// made it.
class HALVORIA_API CFG_Transaction {
 public:
  explicit CFG_Transaction(CFG_RepositoryServices* repository);
  CFG_Transaction(const CFG_Transaction&) = delete;  // a copy would end the transaction twice
  CFG_Transaction& operator=(const CFG_Transaction&) = delete;
  ~CFG_Transaction();

 protected:
  void StartTransaction();
  void EndTransaction();

 private:
  CFG_RepositoryServices* m_repository;
};
