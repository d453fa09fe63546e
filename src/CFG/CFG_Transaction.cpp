#include <CFG/CFG_Transaction.h>

#include <utility>

#include <CFG/CFG_RepositoryServices.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_Transaction", 502);
}

CFG_Transaction::CFG_Transaction(CFG_RepositoryServices* repository) : m_repository(repository) {
  StartTransaction();
}

CFG_Transaction::CFG_Transaction(const CFG_Transaction& other) : m_repository(other.m_repository) {}

CFG_Transaction& CFG_Transaction::operator=(const CFG_Transaction& other) {
  m_repository = other.m_repository;
  return *this;
}

CFG_Transaction::~CFG_Transaction() { EndTransaction(); }

void CFG_Transaction::StartTransaction() {
  if (!m_repository) return;
  logger.trace("Start CFG Transaction\n");
  m_started = m_repository;
  m_started->StartTransaction();
}

void CFG_Transaction::EndTransaction() {
  if (!m_started) return;
  logger.trace("End CFG Transaction\n");
  std::exchange(m_started, nullptr)->EndTransaction();
}
