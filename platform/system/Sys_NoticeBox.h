// A notice for whoever sits in front of the computer.
#pragma once

#include <strings/Export.h>
#include <strings/RWCString.h>

// Shows `text` under `title` without waiting for an answer: two lines on standard
// error here, where processes have no desktop. Any thread.
HALVORIA_API void Sys_NoticeBox(const RWCString& title, const RWCString& text);
