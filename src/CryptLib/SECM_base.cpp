#include <SECM/SECM_base.h>

#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CryptLib/SECM_base", 197);
}  // namespace

KestralLogTracer::KestralLogTracer(const char* operation) : m_operation(operation) {
  logger.trace("%s  ~IN\n", m_operation);
}

KestralLogTracer::~KestralLogTracer() {
  if (!m_is_success) logger.error("%s  ~OUT    ( FAIL !!!! ) \n", m_operation);
}

void KestralLogTracer::Succeed() {
  m_is_success = true;
  logger.trace("%s  ~OUT    (SUCCESS)\n", m_operation);
}
