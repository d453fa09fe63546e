#include <CFG/CFG_RepositoryTransaction.h>

#include <utility>

#include <CFG/CFG_RepositoryServices.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_RepositoryTransaction", 502);
}

CFG_RepositoryTransaction::CFG_RepositoryTransaction(CFG_RepositoryServices* repository) {
  SetRepositoryServices(repository);
}

CFG_RepositoryTransaction::CFG_RepositoryTransaction(const CFG_RepositoryTransaction& other)
    : m_repository(other.m_repository) {}

CFG_RepositoryTransaction& CFG_RepositoryTransaction::operator=(
    const CFG_RepositoryTransaction& other) {
  m_repository = other.m_repository;
  return *this;
}

CFG_RepositoryTransaction::~CFG_RepositoryTransaction() { EndTransaction(); }

void CFG_RepositoryTransaction::SetRepositoryServices(CFG_RepositoryServices* repository) {
  m_repository = repository;
  StartTransaction();
}

bool CFG_RepositoryTransaction::WasRepositorySet() { return m_repository != nullptr; }

void CFG_RepositoryTransaction::StartTransaction() {
  if (!m_repository) return;
  logger.trace("Start CFG Transaction\n");
  m_started = m_repository;
  m_started->StartTransaction();
}

void CFG_RepositoryTransaction::EndTransaction() {
  if (!m_started) return;
  logger.trace("End CFG Transaction\n");
  std::exchange(m_started, nullptr)->EndTransaction();
}
