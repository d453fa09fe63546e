// Names of the installation's token library.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

class HALVORIA_API Tmr_TNLToken {
 public:
  static const RWCString dummy_name;  // stands for a name that nobody has set
};
