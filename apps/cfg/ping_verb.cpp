// ping: whether the service is there, and its store.
#include <system/Sys_Process.h>

#include "parameters.h"
#include "service_address.h"
#include "verbs.h"

namespace cli {

namespace {

std::string milliseconds(std::chrono::microseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", static_cast<double>(time.count()) / 1000);
  return text;
}

ServiceAddress service_of(const Arguments& arguments) {
  if (!arguments.server.empty()) return ServiceAddress::of(arguments.server);
  if (!arguments.tree_file.empty())
    throw Failure(USAGE, "a file answers no ping; leave out --file");
  const ChosenParameters parameters = choose_parameters(arguments.params_file);
  if (parameters.values.cfg_type == "remote") return ServiceAddress::of(parameters.values);
  throw Failure(USAGE, parameters.file + " names no service; ping wants --server HOST:PORT");
}

}  // namespace

int run_ping(Session& session) {
  const Arguments& arguments = session.arguments;
  const ServiceAddress address = service_of(arguments);
  ServiceConnection service(address);
  CFG_Connector& connector = service.connector();
  connector.SetUser(Sys_UserName());
  connector.SetApplication("cfg");
  const Conn_PingClient::Answer answer = service.ping();
  if (connector.GetMaxSeqNumber().isNull()) {  // which is never empty
    throw Failure(UNREACHABLE,
                  "the service at " + address.text() +
                      " answers, but its store does not: " + connector.LastError().str());
  }
  if (arguments.json) {
    session.out.json({{"server", address.text()},
                      {"service", answer.service.str()},
                      {"milliseconds", static_cast<double>(answer.took.count()) / 1000}});
  } else {
    session.out.line(answer.service.str() + " at " + address.text() + " answers in " +
                     milliseconds(answer.took) + " ms");
  }
  return DONE;
}

}  // namespace cli
