// The tables in a PostgreSQL database.
#pragma once

#include <database/postgresql/Pg_Session.h>

// Sets a new session up. Makes the tables of a database that has none, in a schema of their own,
// or takes those of an older version step by step to ours; a newer version is refused. Two
// sessions may do so at once.
bool Pg_PrepareSchema(Pg_Session& session);
