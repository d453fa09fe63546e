#include <database/sqlite/Sqlite_Schema.h>

#include <iterator>

namespace {

// Marks a file as ours: "hcfg".
constexpr int64_t kApplication = 0x68636667;

// Version n of the schema is what the first n steps make. Never change one that was shipped.
constexpr const char* kSteps[] = {
    "CREATE TABLE entry (path TEXT NOT NULL PRIMARY KEY, value TEXT NOT NULL,"
    "  sequence INTEGER NOT NULL, single INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE INDEX entry_changed ON entry (sequence) WHERE single = 1;"
    "CREATE TABLE deleted (path TEXT NOT NULL PRIMARY KEY, sequence INTEGER NOT NULL,"
    "  at INTEGER NOT NULL) WITHOUT ROWID;"
    "CREATE INDEX deleted_sequence ON deleted (sequence);"
    "CREATE TABLE store (id INTEGER PRIMARY KEY CHECK (id = 1), last_sequence INTEGER NOT NULL,"
    "  last_bulk INTEGER NOT NULL, oldest_deletion INTEGER NOT NULL, sync_id TEXT NOT NULL,"
    "  created TEXT NOT NULL);"
    "WITH r (x) AS (SELECT lower(hex(randomblob(16))))"
    "  INSERT INTO store SELECT 1, 0, 0, 1, substr(x, 1, 8) || '-' || substr(x, 9, 4) || '-4' ||"
    "    substr(x, 14, 3) || '-' || substr('89ab', 1 + abs(random() % 4), 1) || substr(x, 18, 3) ||"
    "    '-' || substr(x, 21), datetime('now') FROM r;",
    // Rows that are sealed, and one behind the last (Sqlite_Row.h).
    "CREATE TABLE sealed_entry (path TEXT NOT NULL PRIMARY KEY, value BLOB NOT NULL,"
    "  sequence INTEGER NOT NULL, single INTEGER NOT NULL) WITHOUT ROWID;"
    "INSERT INTO sealed_entry"
    "  SELECT path, sealed(lag(path, 1, '') OVER (ORDER BY path), path, value, sequence), sequence,"
    "    single FROM (SELECT path, value, sequence, single FROM entry"
    "      UNION ALL SELECT CAST(x'ffffffff' AS TEXT), '', 0, 0) ORDER BY path;"
    "DROP TABLE entry;"
    "ALTER TABLE sealed_entry RENAME TO entry;"
    "CREATE INDEX entry_changed ON entry (sequence) WHERE single = 1;"
    "ALTER TABLE deleted ADD COLUMN sum BLOB NOT NULL DEFAULT x'';"
    "UPDATE deleted SET sum = sealed('', path, '', sequence);"
    "ALTER TABLE store ADD COLUMN sum BLOB NOT NULL DEFAULT x'';"
    "UPDATE store SET sum = sealed('', last_sequence || ' ' || last_bulk || ' ' ||"
    "  oldest_deletion || ' ' || sync_id, '', 0);",
};
constexpr int64_t kVersion = std::size(kSteps);

// Runs the steps that are missing, within a transaction that keeps others from doing so.
bool take_steps(Sqlite_Session& session) {
  int64_t version = 0, application = 0, tables = 0;
  if (!session.ask("PRAGMA user_version", version, "read") ||
      !session.ask("PRAGMA application_id", application, "read") ||
      !session.ask("SELECT count(*) FROM sqlite_master", tables, "read")) {
    return false;
  }
  if (tables && application != kApplication) {
    return session.fail("use", "it is the file of another program");
  }
  if (version > kVersion) {
    return session.fail("use", "its schema has version " + std::to_string(version) +
                                   ", this program knows versions up to " +
                                   std::to_string(kVersion));
  }
  for (int64_t step = version; step < kVersion; ++step) {
    if (!session.run(kSteps[step], "make the tables of")) return false;
  }
  const std::string mark = "PRAGMA user_version = " + std::to_string(kVersion) +
                           "; PRAGMA application_id = " + std::to_string(kApplication);
  return session.run(mark.c_str(), "make the tables of");
}

}  // namespace

bool Sqlite_PrepareSchema(Sqlite_Session& session) {
  int64_t version = 0, application = 0;
  if (!session.ask("PRAGMA user_version", version, "read") ||
      !session.ask("PRAGMA application_id", application, "read")) {
    return false;
  }
  if (version == kVersion && application == kApplication) return true;
  if (!session.run("BEGIN IMMEDIATE", "lock")) return false;
  if (take_steps(session)) return session.run("COMMIT", "make the tables of");
  sqlite3_exec(session.handle(), "ROLLBACK", nullptr, nullptr, nullptr);
  return false;
}
