#include <database/postgresql/Pg_Schema.h>

#include <cstdlib>
#include <iterator>

namespace {

// Version n of the schema is what the first n steps make. Never change one that was shipped.
constexpr const char* kSteps[] = {
    "CREATE TABLE halvoria_cfg.entry (path bytea PRIMARY KEY, value bytea NOT NULL,"
    "  sequence bigint NOT NULL, single boolean NOT NULL);"
    "CREATE INDEX entry_changed ON halvoria_cfg.entry (sequence) WHERE single;"
    "CREATE TABLE halvoria_cfg.deleted (path bytea PRIMARY KEY, sequence bigint NOT NULL,"
    "  at timestamptz NOT NULL);"
    "CREATE INDEX deleted_sequence ON halvoria_cfg.deleted (sequence);"
    "CREATE TABLE halvoria_cfg.store (id int PRIMARY KEY CHECK (id = 1),"
    "  schema_version int NOT NULL, last_sequence bigint NOT NULL, last_bulk bigint NOT NULL,"
    "  oldest_deletion bigint NOT NULL, sync_id text NOT NULL, created timestamptz NOT NULL);"
    "INSERT INTO halvoria_cfg.store VALUES (1, 1, 0, 0, 1, gen_random_uuid()::text, now());"
    // For people: the rows as text.
    "CREATE VIEW halvoria_cfg.readable AS SELECT convert_from(path, 'UTF8') AS path,"
    "  convert_from(value, 'UTF8') AS value, sequence FROM halvoria_cfg.entry;",
    // A value in place of another, in one call; null when it is not done. Each of its statements
    // sees what was committed until then. It does not wait for the writers' lock: a call whose
    // client is gone must not come to its turn later.
    "CREATE FUNCTION halvoria_cfg.replace_value(at_path bytea, new_value bytea, wait text)"
    "  RETURNS bigint LANGUAGE plpgsql AS $$"
    "  DECLARE number bigint;"
    "  BEGIN"
    "    IF NOT pg_try_advisory_xact_lock(1751344743, 1) THEN RETURN NULL; END IF;"
    "    PERFORM set_config('lock_timeout', wait, true);"
    "    UPDATE halvoria_cfg.entry SET value = new_value, single = true,"
    "      sequence = (SELECT last_sequence + 1 FROM halvoria_cfg.store)"
    "      WHERE path = at_path AND value <> '' AND value <> new_value"
    "      RETURNING sequence INTO number;"
    "    IF FOUND THEN UPDATE halvoria_cfg.store SET last_sequence = number; END IF;"
    "    RETURN number;"
    "  END $$;",
};
constexpr int kVersion = std::size(kSteps);

// Rows are wanted in order of path as they are found: through the index, without sorting first.
constexpr char kSettings[] =
    "SET search_path = halvoria_cfg; SET jit = off; SET enable_bitmapscan = off;"
    "SET enable_seqscan = off; SET client_min_messages = warning";

// -1 on failure, 0 when there are no tables.
int version_of(Pg_Session& session) {
  // From the rows of the catalog: what a session remembers of names may be older.
  const Pg_Result table = session.run(
      "SELECT count(*) = 0 FROM pg_catalog.pg_tables"
      " WHERE schemaname = 'halvoria_cfg' AND tablename = 'store'",
      "read");
  if (!table) return -1;
  if (Pg_Bytes(table.get(), 0, 0) == "t") return 0;
  const Pg_Result row = session.run("SELECT schema_version FROM halvoria_cfg.store", "read");
  return row ? std::atoi(PQgetvalue(row.get(), 0, 0)) : -1;
}

bool take_steps(Pg_Session& session) {
  // The number stands for "hcfg"; whoever makes the tables holds it.
  if (!session.run("SELECT pg_advisory_xact_lock(1751344743)", "lock")) return false;
  int version = version_of(session);
  if (version < 0) return false;
  const char what[] = "make the tables of";
  if (!version && !session.run("CREATE SCHEMA IF NOT EXISTS halvoria_cfg", what)) return false;
  for (; version < kVersion; ++version) {
    if (!session.run(kSteps[version], what)) return false;
  }
  const std::string mark =
      "UPDATE halvoria_cfg.store SET schema_version = " + std::to_string(kVersion);
  return session.run(mark.c_str(), what) != nullptr;
}

}  // namespace

bool Pg_PrepareSchema(Pg_Session& session) {
  if (!session.run(kSettings, "set up")) return false;
  const int version = version_of(session);
  if (version < 0) return false;
  if (version > kVersion) {
    return session.fail("use", "its schema has version " + std::to_string(version) +
                                   ", this program knows versions up to " +
                                   std::to_string(kVersion));
  }
  if (version == kVersion) return true;
  if (!session.run("BEGIN", "lock")) return false;
  if (take_steps(session)) return session.run("COMMIT", "make the tables of") != nullptr;
  PQclear(PQexec(session.handle(), "ROLLBACK"));
  return false;
}
