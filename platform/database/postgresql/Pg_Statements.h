// The statements of the store.
#pragma once

#include <database/Db_InOrder.h>
#include <database/postgresql/Pg_Session.h>

// What changed after a number is found through the index of single changes, unless so much
// changed, or a bulk write did, that going through the range is quicker.
#define BY_INDEX "$3 >= (SELECT greatest(last_bulk, last_sequence - 50000) FROM store)"
// Where the name of a branch ends in a path below the key, whose names begin at $3; 0 for a row
// directly under it.
#define CUT(path) "position('\\x5c'::bytea IN substring(" path " FROM $3::int))"
#define SUM_OF_PATHS "count(*), sum(hashtextextended(encode(path, 'hex'), 0))"
#define ON_DELETED "ON CONFLICT (path) DO UPDATE SET sequence = excluded.sequence, at = excluded.at"

struct Pg_Statement {
  Pg_Sql name;
  const char* text;
};
constexpr Pg_Statement kPgStatements[] = {
    {Pg_Sql::GET, "SELECT value FROM entry WHERE path = $1::bytea"},
    {Pg_Sql::RANGE,
     "SELECT path, value, sequence FROM entry WHERE path >= $1::bytea AND path < $2::bytea"
     " ORDER BY path"},
    {Pg_Sql::RANGE_ABOVE,
     "SELECT path, value, sequence FROM entry WHERE single AND sequence > $3::int8"
     " AND path >= $1::bytea AND path < $2::bytea AND " BY_INDEX
     " UNION ALL SELECT path, value, sequence FROM entry WHERE path >= $1 AND path < $2"
     " AND sequence > $3 AND NOT " BY_INDEX " ORDER BY path"},
    {Pg_Sql::DELETED,
     "SELECT path, ''::bytea, sequence FROM deleted WHERE path >= $1::bytea AND path < $2::bytea"
     " ORDER BY path"},
    {Pg_Sql::DELETED_ABOVE,
     "SELECT path, ''::bytea, sequence FROM deleted WHERE path >= $1::bytea AND path < $2::bytea"
     " AND sequence > $3::int8 ORDER BY path"},
    // From row to row: behind a row directly under the key comes the next, behind one of a branch
    // the first after the branch.
    {Pg_Sql::CHILDREN,
     "WITH RECURSIVE walk AS ("
     " (SELECT path, value, sequence FROM entry WHERE path >= $1::bytea AND path < $2::bytea"
     "  ORDER BY path LIMIT 1)"
     " UNION ALL"
     " SELECT n.path, n.value, n.sequence FROM walk w, LATERAL ("
     "  SELECT e.path, e.value, e.sequence FROM entry e WHERE e.path < $2 AND e.path >= CASE"
     "   WHEN " CUT("w.path") " = 0 THEN w.path || '\\x00'::bytea"
                              "   ELSE substring(w.path FROM 1 FOR $3::int + " CUT(
                                  "w.path") " - 2) || '\\x5d'::bytea END"
                                            "  ORDER BY e.path LIMIT 1) n"
                                            ") SELECT path, value, sequence FROM walk WHERE " CUT(
                                                "path") " = 0"},
    {Pg_Sql::COUNT, "SELECT count(*) FROM entry WHERE path >= $1::bytea AND path < $2::bytea"},
    {Pg_Sql::MAX_SEQUENCE,
     "SELECT greatest((SELECT coalesce(max(sequence), 0) FROM entry"
     "  WHERE path >= $1::bytea AND path < $2::bytea),"
     " (SELECT coalesce(max(sequence), 0) FROM deleted WHERE path >= $1 AND path < $2))"},
    {Pg_Sql::LAST_SEQUENCE, "SELECT last_sequence FROM store"},
    {Pg_Sql::OLDEST_DELETION, "SELECT oldest_deletion FROM store"},
    {Pg_Sql::SYNC_ID, "SELECT sync_id FROM store"},
    {Pg_Sql::DATE_TIME,
     "SELECT to_char(clock_timestamp() AT TIME ZONE 'UTC', 'YYYY-MM-DD HH24:MI:SS')"},
    {Pg_Sql::CHECK,
     "SELECT count(*) FROM (SELECT sequence FROM"
     "  (SELECT sequence FROM entry UNION ALL SELECT sequence FROM deleted) numbers"
     "  GROUP BY sequence HAVING count(*) > 1 OR sequence < 1"
     "  OR sequence > (SELECT last_sequence FROM store)) wrong"},
    // What is found by the index, and page by page.
    {Pg_Sql::CHECK_INDEX,
     "SELECT count(*) FROM (SELECT " SUM_OF_PATHS " FROM entry WHERE path >= ''::bytea"
     " EXCEPT SELECT " SUM_OF_PATHS " FROM entry WHERE ctid >= '(0,0)'::tid) differing"},
    {Pg_Sql::PAGES, "SELECT pg_relation_size('entry') / current_setting('block_size')::int8"},
    {Pg_Sql::PAGE,
     "SELECT path, value, sequence FROM entry WHERE ctid >= format('(%s,0)', $1::int8)::tid"
     " AND ctid < format('(%s,0)', $1 + 1)::tid"},
    {Pg_Sql::DATA_CHECKSUMS, "SELECT current_setting('data_checksums')"},
    // Each statement behind the lock sees what was committed until then.
    {Pg_Sql::BEGIN, "BEGIN ISOLATION LEVEL READ COMMITTED"},
    {Pg_Sql::BEGIN_READ, "BEGIN ISOLATION LEVEL REPEATABLE READ READ ONLY"},
    // The database's one, and "hcfg"; it goes with the transaction, or the connection.
    {Pg_Sql::LOCK,
     "SELECT set_config('lock_timeout', $1::text, true), pg_advisory_xact_lock(1751344743, 1)"},
    {Pg_Sql::REPLACE, "SELECT replace_value($1::bytea, $2::bytea, $3::text)"},
    {Pg_Sql::LAST_AND_VALUE,
     "SELECT last_sequence, (SELECT value FROM entry WHERE path = $1::bytea) FROM store"},
    {Pg_Sql::PUT,
     "WITH forgotten AS (DELETE FROM deleted WHERE path = $1)"
     " INSERT INTO entry (path, value, sequence, single) VALUES ($1::bytea, $2::bytea, $3::int8,"
     " true) ON CONFLICT (path) DO UPDATE SET value = $2, sequence = $3, single = true"},
    {Pg_Sql::PUT_MANY,
     "WITH rows AS (SELECT * FROM unnest($1::bytea[], $2::bytea[], $3::int8[]) AS r (p, v, s)),"
     " forgotten AS (DELETE FROM deleted USING rows WHERE path = p)"
     " INSERT INTO entry (path, value, sequence, single) SELECT p, v, s, true FROM rows"
     " ON CONFLICT (path) DO UPDATE SET value = excluded.value, sequence = excluded.sequence,"
     " single = true"},
    {Pg_Sql::COPY_NEW, "COPY entry (path, value, sequence, single) FROM STDIN (FORMAT binary)"},
    {Pg_Sql::FORGET_DELETIONS,
     "DELETE FROM deleted WHERE path >= $1::bytea AND path <= $2::bytea"
     " AND EXISTS (SELECT 1 FROM entry WHERE entry.path = deleted.path)"},
    {Pg_Sql::ERASE_MANY,
     "WITH rows AS (SELECT * FROM unnest($1::bytea[], $2::int8[]) AS r (p, s)),"
     " gone AS (DELETE FROM entry USING rows WHERE path = p)"
     " INSERT INTO deleted (path, sequence, at) SELECT p, s, now() FROM rows " ON_DELETED},
    {Pg_Sql::ERASE_RANGE,
     "WITH gone AS (DELETE FROM entry WHERE path >= $1::bytea AND path < $2::bytea RETURNING path)"
     " INSERT INTO deleted (path, sequence, at)"
     " SELECT path, $3::int8 - 1 + row_number() OVER (ORDER BY path), now() FROM gone " ON_DELETED},
    {Pg_Sql::SET_LAST, "UPDATE store SET last_sequence = $1::int8"},
    {Pg_Sql::SET_LAST_BULK, "UPDATE store SET last_sequence = $1::int8, last_bulk = $1"},
    {Pg_Sql::COMMIT, "COMMIT"},
    {Pg_Sql::HOLD, "SAVEPOINT held"},
    {Pg_Sql::SAVEPOINT, "SAVEPOINT part"},
    {Pg_Sql::RELEASE, "RELEASE part"},
    {Pg_Sql::PURGE,
     "WITH newest AS (SELECT max(sequence) AS number FROM deleted"
     "  WHERE at < now() - $1::int8 * interval '1 day'),"
     " floor AS (UPDATE store SET oldest_deletion = greatest(oldest_deletion, number + 1)"
     "  FROM newest WHERE number IS NOT NULL)"
     " DELETE FROM deleted USING newest WHERE sequence <= number"},
};
static_assert(Db_IsInOrder(kPgStatements));

#undef BY_INDEX
#undef CUT
#undef SUM_OF_PATHS
#undef ON_DELETED
