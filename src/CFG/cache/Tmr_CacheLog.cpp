#include <Tmr/Tmr_Cache.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("inc/Tmr/Tmr_Cache", 502);
}

void Tmr_CacheLog::full() { logger.detail("cache is full,removing last element from it"); }
void Tmr_CacheLog::removed(std::string_view key) { logger.detail("removing from cache <%s>", key); }
void Tmr_CacheLog::expired(std::string_view key) { logger.info("timeout for key <%s>", key); }
void Tmr_CacheLog::listed(const std::string& keys) { logger.detail("cache list = %s ", keys); }
