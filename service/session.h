// What the service keeps with a connection.
#pragma once

#include <memory>

#include "caller.h"
#include "lock.h"
#include "request.h"

namespace service {

// Belongs to the request that is under way, and to nobody while there is none.
struct Session {
  Caller caller;
  Request request;
  std::shared_ptr<Lock> lock;  // from Lock to UnLock, also when it was lost meanwhile
  bool is_extended = false;
};

}  // namespace service
