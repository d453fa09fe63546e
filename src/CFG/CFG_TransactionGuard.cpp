#include <CFG/CFG_TransactionGuard.h>

#include <CFG/CFG_Factory.h>

CFG_TransactionGuard::CFG_TransactionGuard(CFG_RepositoryServices* repository)
    : m_repository(repository ? repository : CFG_Factory::GetRepositoryServices()) {
  if (m_repository) m_repository->StartTransaction();
}

CFG_TransactionGuard::~CFG_TransactionGuard() {
  if (m_repository) m_repository->EndTransaction();
}
