#include <utility/Tmr_CfgHook.h>

std::atomic<Tmr_CfgHookInterface*> Tmr_CfgHook::m_hook{nullptr};
