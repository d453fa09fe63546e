// The module CfgDbDisconnect. Loaded with the first repository of the factory over a database, it
// goes before everything that was there until then: so it is the one who says that the process
// ends, while the connections, the log and the client library of the database still stand.

namespace {
struct AtEnd {
  ~AtEnd() {
    if (close) close();
  }
  void (*close)() = nullptr;
} at_end;
}  // namespace

extern "C" __attribute__((visibility("default"))) void CfgDbDisconnect(void (*close)()) {
  at_end.close = close;
}
