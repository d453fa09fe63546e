// The command line of the service.
#pragma once

#include <string>

#include <service/settings.h>

namespace svcfg {

class CommandLine {
 public:
  enum Result { SERVE, CHECK, PRINT, WRONG };

  // SERVE with settings() to serve with; CHECK with the store to look at; PRINT with a text for
  // standard output; WRONG with what is wrong.
  Result read(int argc, char** argv, std::string& text);
  const service::Settings& settings() const { return m_settings; }
  // Whether whoever started it wants to know the port, on standard output, once it listens.
  bool prints_port() const { return m_prints_port; }
  const std::string& checked() const { return m_checked; }
  const std::string& salvage() const { return m_salvage; }

 private:
  service::Settings m_settings;
  bool m_prints_port = false;
  std::string m_checked, m_salvage;
};

}  // namespace svcfg
