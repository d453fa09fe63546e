#include <utility/Tmr_CfgINI.h>

#include <algorithm>

#include <logging/Logger.h>
#include <system/Sys_Environment.h>
#include <system/Sys_File.h>
#include <system/Sys_Process.h>

namespace {

constexpr Log_Logger logger("platform/utility/Tmr_CfgINI", 502);

constexpr wchar_t kFileName[] = L"CfgConnectionParams.txt";

std::vector<RWWString> places() {
  RWCString named;
  if (Sys_Environment::Get("HALVORIA_CFG_FILE", named) && !named.isNull()) {
    return {RWWString::fromUTF8(named)};
  }
  std::vector<RWWString> places = {kFileName};
  const RWWString program = Sys_ExecutableFile();
  const size_t slash = program.view().rfind(L'/');
  if (slash != program.view().npos) {
    places.push_back(std::wstring(program.view().substr(0, slash + 1)) + kFileName);
  }
  places.push_back(RWWString(L"/etc/halvoria/") + kFileName);
  return places;
}

}  // namespace

Tmr_CfgINI& Tmr_CfgINI::Instance() {
  instance().load();
  return instance();
}

Tmr_CfgINI& Tmr_CfgINI::instance() {
  static Tmr_CfgINI& made = *new Tmr_CfgINI;  // also for the last destructors of the process
  return made;
}
// Made when the library is loaded: a child of a fork would wait for ever for a thread that was just
// making it.
const Tmr_CfgINI& Tmr_CfgINI::made_early = instance();

void Tmr_CfgINI::load() {
  const MutexGuard guard(m_load_mutex);
  if (IsInit()) return;
  m_places = places();
  const auto found = std::find_if(m_places.begin(), m_places.end(), Sys_File::Exists);
  m_file_name = found == m_places.end() ? RWWString() : *found;
  if (!m_file_name.isNull()) {
    logger.detail("parameters are read from <%S>\n", m_file_name);
    ReadINIFile(m_file_name);
  } else if (m_places.size() == 1) {
    logger.error("HALVORIA_CFG_FILE names the parameters file <%S>, which does not exist\n",
                 m_places[0]);
  } else {
    for (const RWWString& place : m_places)
      logger.detail("there is no parameters file <%S>\n", place);
  }
}

RWWString Tmr_CfgINI::FileName() const {
  const MutexGuard guard(m_load_mutex);
  return m_file_name;
}

std::vector<RWWString> Tmr_CfgINI::Places() const {
  const MutexGuard guard(m_load_mutex);
  return m_places;
}
