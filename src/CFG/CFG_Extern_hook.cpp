#include <CFG/CFG_Extern_hook.h>

#include <utility>

#include <CFG/CFG_Factory.h>
#include <CFG/detail/answered.h>
#include <logging/Logger.h>

namespace {
constexpr Log_Logger logger("src/CFG/CFG_Extern_hook", 502);
}

RWCString CFG_Extern_hook::GetValue(RWCString path, RWCString default_value) try {
  bool is_ready = false;
  const RWCString text = CFG_Factory::answer_hook(path, default_value, is_ready);
  if (!is_ready) {
    return logger.reject(
        default_value,
        "CFG_Extern_hook::GetValue: fot path <%s> ,CFG is not ready can employ Tmr_CfgHookInterface.  Returning the default <%s>\n",
        path, default_value);
  }
  logger.info("CFG_Extern_hook::GetValue: path <%s> returned value <%s>  default value <%s>\n",
              path, text, default_value);
  return text;
} catch (...) {
  return cfg::answered(logger, std::move(default_value));
}
