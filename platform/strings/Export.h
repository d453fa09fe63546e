// The one export macro: what it marks is visible to programs that load the library.
#pragma once

#if defined(_WIN32)
#if defined(HALVORIA_BUILD)
#define HALVORIA_API __declspec(dllexport)
#else
#define HALVORIA_API __declspec(dllimport)
#endif
#else
#define HALVORIA_API __attribute__((visibility("default")))
#endif
