// Who we are: this computer and this process.
#pragma once

#include <cstdint>

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// The computer's name as its administrator set it; empty when the system does not tell.
HALVORIA_API RWCString Sys_ComputerName();

// Whom this process acts for, as the system calls them; empty when it does not tell.
HALVORIA_API RWCString Sys_UserName();

// The folder of that user's own files: HOME, else what the system says; empty when neither tells.
HALVORIA_API RWCString Sys_HomeFolder();

// Whether it may do everything on this computer.
HALVORIA_API bool Sys_IsAdministrator();

// Raises the number of files that this process may have open as far as the system allows. What it
// is then.
HALVORIA_API int64_t Sys_AllowMostFiles();

// For a program that may be started without standard input, output or error: takes their places, so
// that no file or connection is opened in one of them, and gets what is written to it. Reading and
// writing them fails, as before. Call it first of all.
HALVORIA_API void Sys_KeepStandardStreams();

HALVORIA_API int Sys_ProcessId();
// Ends it on the spot: nothing is destroyed, and nobody is called who waits for its exit.
[[noreturn]] HALVORIA_API void Sys_EndProcess(int code);

// The program file of this process with its folder, and its bare name; empty when
// the system does not tell.
HALVORIA_API RWWString Sys_ExecutableFile();
HALVORIA_API RWCString Sys_ProcessName();
