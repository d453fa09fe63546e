// The tables of a database file.
#pragma once

#include <database/sqlite/Sqlite_Session.h>

// Makes the tables of a new file, or takes those of an older version step by step to ours; a
// newer version and files of other programs are refused. Two processes may do so at once.
bool Sqlite_PrepareSchema(Sqlite_Session& session);
