// Modules of this library: code that is loaded when it is first needed.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// The address of a function in the module of that file name, which is loaded when it is first
// asked for and then stays. Modules lie in the folder that the environment variable
// HALVORIA_MODULES names or, without that, in one of those near the library or program that
// holds this code: `halvoria` beside it, its own, ../lib/halvoria, ../lib. NULL with the reason
// when there is no such module or no such function; the next call looks again. Any thread.
HALVORIA_API void* Sys_ModuleFunction(const RWCString& file, const RWCString& function,
                                      RWCString& reason);
