// The catalog's tables, version by version.
//
// Paths are blobs: compared byte for byte, and a table without rowid keeps a backup's files
// together in that order.
#pragma once

namespace dorvo {

// The first databases had no number, so what version 1 makes may be there already.
inline constexpr char sqliteVersion1[] = R"(
CREATE TABLE IF NOT EXISTS service(
  one INTEGER PRIMARY KEY CHECK(one = 1), boot TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS users(
  id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, password TEXT NOT NULL);
CREATE TABLE IF NOT EXISTS machines(
  id INTEGER PRIMARY KEY, user INTEGER NOT NULL, name TEXT NOT NULL, UNIQUE(user, name));
CREATE TABLE IF NOT EXISTS sessions(
  token BLOB PRIMARY KEY, machine INTEGER NOT NULL, used INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS instances(
  id INTEGER PRIMARY KEY AUTOINCREMENT, name TEXT NOT NULL UNIQUE, machine INTEGER NOT NULL,
  definition TEXT NOT NULL, base INTEGER NOT NULL, state INTEGER NOT NULL,
  damaged INTEGER NOT NULL DEFAULT 0, completion INTEGER NOT NULL DEFAULT 0,
  compress INTEGER NOT NULL, reserved INTEGER NOT NULL DEFAULT 0,
  starttime TEXT NOT NULL DEFAULT '', endtime TEXT NOT NULL DEFAULT '',
  totalfiles INTEGER NOT NULL DEFAULT 0, totaldirectories INTEGER NOT NULL DEFAULT 0,
  totalsize INTEGER NOT NULL DEFAULT 0);
CREATE INDEX IF NOT EXISTS instances_job ON instances(machine, definition, completion);
CREATE TABLE IF NOT EXISTS files(
  instance INTEGER NOT NULL, path BLOB NOT NULL, kind INTEGER NOT NULL, attributes BLOB NOT NULL,
  mtime INTEGER NOT NULL, compress INTEGER NOT NULL, size INTEGER NOT NULL,
  blocks INTEGER NOT NULL, container INTEGER NOT NULL, offset INTEGER NOT NULL,
  PRIMARY KEY(instance, path)) WITHOUT ROWID;
CREATE TABLE IF NOT EXISTS errors(
  instance INTEGER NOT NULL, path BLOB NOT NULL, code INTEGER NOT NULL, reason TEXT NOT NULL,
  PRIMARY KEY(instance, path)) WITHOUT ROWID;
)";

inline constexpr char sqliteVersion2[] = R"(
ALTER TABLE users ADD COLUMN keysmd5 TEXT NOT NULL DEFAULT '';
CREATE TABLE restores(
  id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, machine INTEGER NOT NULL,
  definition TEXT NOT NULL, instance INTEGER NOT NULL, history TEXT NOT NULL DEFAULT '');
CREATE TABLE restore_errors(
  restore INTEGER NOT NULL, path BLOB NOT NULL, code INTEGER NOT NULL, reason TEXT NOT NULL,
  PRIMARY KEY(restore, path)) WITHOUT ROWID;
)";

// Until then an instance had one container, with its own number.
inline constexpr char sqliteVersion3[] = R"(
CREATE TABLE containers(
  id INTEGER PRIMARY KEY AUTOINCREMENT, instance INTEGER NOT NULL, given INTEGER NOT NULL);
CREATE INDEX containers_instance ON containers(instance);
CREATE TABLE given_up(container INTEGER PRIMARY KEY);
INSERT INTO containers(id, instance, given)
  SELECT id, id, reserved FROM instances WHERE state <> 3 AND reserved > 0;
INSERT INTO given_up SELECT id FROM instances WHERE state = 3;
DELETE FROM sqlite_sequence WHERE name = 'containers';
INSERT INTO sqlite_sequence(name, seq)
  SELECT 'containers', seq FROM sqlite_sequence WHERE name = 'instances';
ALTER TABLE instances DROP COLUMN reserved;
)";

inline constexpr char sqliteVersion4[] = R"(
ALTER TABLE service ADD COLUMN identity TEXT NOT NULL DEFAULT '';
ALTER TABLE service ADD COLUMN generation INTEGER NOT NULL DEFAULT 0;
ALTER TABLE containers ADD COLUMN keep INTEGER NOT NULL DEFAULT 0;
)";

// What came before has no digests, seals or counts; what is not there is not compared.
inline constexpr char sqliteVersion5[] = R"(
ALTER TABLE containers ADD COLUMN digests INTEGER NOT NULL DEFAULT 0;
ALTER TABLE instances ADD COLUMN items INTEGER NOT NULL DEFAULT -1;
ALTER TABLE instances ADD COLUMN idle INTEGER NOT NULL DEFAULT 0;
ALTER TABLE files ADD COLUMN seal INTEGER;
ALTER TABLE service ADD COLUMN synced INTEGER NOT NULL DEFAULT 0;
CREATE TABLE digests(
  container INTEGER NOT NULL, position INTEGER NOT NULL, stamp INTEGER NOT NULL, md5s BLOB NOT NULL,
  PRIMARY KEY(container, position)) WITHOUT ROWID;
CREATE TABLE damaged(
  container INTEGER NOT NULL, offset INTEGER NOT NULL, PRIMARY KEY(container, offset)) WITHOUT ROWID;
)";

// Ids of backups are each user's own: whoever makes one learns of nobody else's.
inline constexpr char sqliteVersion6[] = R"(
CREATE TABLE of_users(
  id INTEGER PRIMARY KEY AUTOINCREMENT, user INTEGER NOT NULL, name TEXT NOT NULL,
  machine INTEGER NOT NULL, definition TEXT NOT NULL, base INTEGER NOT NULL,
  state INTEGER NOT NULL, damaged INTEGER NOT NULL DEFAULT 0,
  completion INTEGER NOT NULL DEFAULT 0, compress INTEGER NOT NULL,
  starttime TEXT NOT NULL DEFAULT '', endtime TEXT NOT NULL DEFAULT '',
  totalfiles INTEGER NOT NULL DEFAULT 0, totaldirectories INTEGER NOT NULL DEFAULT 0,
  totalsize INTEGER NOT NULL DEFAULT 0, items INTEGER NOT NULL DEFAULT -1,
  idle INTEGER NOT NULL DEFAULT 0, UNIQUE(user, name));
INSERT INTO of_users
  SELECT i.id, coalesce(m.user, 0), i.name, i.machine, i.definition, i.base, i.state, i.damaged,
    i.completion, i.compress, i.starttime, i.endtime, i.totalfiles, i.totaldirectories,
    i.totalsize, i.items, i.idle
  FROM instances i LEFT JOIN machines m ON m.id = i.machine;
DELETE FROM sqlite_sequence WHERE name = 'of_users';
INSERT INTO sqlite_sequence(name, seq)
  SELECT 'of_users', seq FROM sqlite_sequence WHERE name = 'instances';
DROP TABLE instances;
ALTER TABLE of_users RENAME TO instances;
CREATE INDEX instances_job ON instances(machine, definition, completion);
)";

// Each makes its version, from 1 on, out of the one before.
inline constexpr const char* sqliteVersions[] = {sqliteVersion1, sqliteVersion2, sqliteVersion3,
                                                 sqliteVersion4, sqliteVersion5, sqliteVersion6};

}  // namespace dorvo
