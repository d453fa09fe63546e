// From the file names of the interfaces to those of the operating system.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>
#include <strings/RWWString.h>

// The name to hand to the system, in UTF-8. Both separators are understood: a backslash
// stands for a slash, unless a file exists under exactly the name given (a backslash is
// an ordinary letter of file names here). Relative names stay relative.
// Everything in this library that takes a file name goes through this.
HALVORIA_API RWCString Sys_NativeFileName(const RWWString& name);

// A native name from the root of the file system on, for messages: a relative one says little to
// who does not know where the process runs.
HALVORIA_API RWCString Sys_AbsoluteFileName(const RWCString& native_name);

// Which file it is, by whatever name and link; empty when there is none.
HALVORIA_API RWCString Sys_FileIdentity(const RWCString& native_name);

// The folder of a native name: "." when it names none, "/" for the root.
HALVORIA_API RWCString Sys_FolderOf(const RWCString& native_name);

// Why no file can have this native name: empty, or a NUL inside. Empty text when it can.
HALVORIA_API RWCString Sys_FileNameFault(const RWCString& native_name);
