// The integer booleans of the installation's interfaces.
#pragma once

using T_Bool = int;

// Macros, as other interfaces of a program may define the same ones.
#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
