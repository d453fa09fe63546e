#include <events/KestralEvent.h>

#include <nlohmann/json.hpp>

#include <logging/Logger.h>
#include <strings/T_Bool.h>

namespace KestralEvent {

namespace {
constexpr char file[] = "platform/events/KestralEvent";
constexpr Log_Logger logger(file, MODULE);
}  // namespace

int CFGPerformance::Send() const {
  // The gate itself tells for certain whether the line will be written.
  if (!TmrGLog.StoreParams(file, "Send", __LINE__, LOG_LEVEL_INFORMATION, MODULE, 1)) return FALSE;
  try {
    const nlohmann::ordered_json event = {{"event", "CFGPerformance"},
                                          {"number", m_number},
                                          {"path", m_path.str()},
                                          {"source", m_source.str()},
                                          {"operation", m_operation.str()},
                                          {"milliseconds", m_milliseconds},
                                          {"flag", m_flag},
                                          {"count", m_count}};
    TmrGLog.Log("%s\n",
                event.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace));
    return TRUE;
  } catch (const std::exception& e) {
    return logger.reject(FALSE, "CFGPerformance : the event can not be sent: %s\n", e.what());
  }
}

}  // namespace KestralEvent
