#include "caller.h"

namespace service {

std::string Caller::text() const {
  return "user '" + user + "', application '" + application + "', session " +
         std::to_string(session) + " from " + address;
}

}  // namespace service
