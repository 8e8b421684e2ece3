// The catalog's tables and its prepared statements, one place for all SQL that requests run.
//
// Paths are blobs: compared byte for byte, and a table without rowid keeps a backup's files
// together in that order.
#pragma once

#include "sqlite.h"
#include "sqlite_catalog.h"

namespace dorvo {

inline constexpr char sqliteSchema[] = R"(
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

struct SqliteCatalog::Statements {
    explicit Statements(const Database& database) : db(database) {}

    const Database& db;

    Statement addUser{db, "INSERT OR IGNORE INTO users(name, password) VALUES(?1, ?2)"};
    Statement findPassword{db, "SELECT password FROM users WHERE name = ?1"};

    Statement addMachine{db,
                         "INSERT OR IGNORE INTO machines(user, name)"
                         " SELECT id, ?2 FROM users WHERE name = ?1"};
    Statement addSession{db,
                         "INSERT INTO sessions(token, machine, used)"
                         " SELECT ?1, m.id, ?4 FROM machines m JOIN users u ON u.id = m.user"
                         " WHERE u.name = ?2 AND m.name = ?3"};
    Statement expireSessions{db, "DELETE FROM sessions WHERE used + ?2 <= ?1"};
    Statement findSession{db,
                          "SELECT u.id, m.id, u.name, m.name, s.used FROM sessions s"
                          " JOIN machines m ON m.id = s.machine JOIN users u ON u.id = m.user"
                          " WHERE s.token = ?1"};
    Statement useSession{db, "UPDATE sessions SET used = ?2 WHERE token = ?1"};
    Statement removeSession{db, "DELETE FROM sessions WHERE token = ?1"};

    Statement findInstanceByName{db,
                                 "SELECT i.id, i.name, m.user, i.definition, i.state, i.damaged,"
                                 " i.reserved, i.compress FROM instances i"
                                 " JOIN machines m ON m.id = i.machine WHERE i.name = ?1"};
    Statement findInstanceById{db,
                               "SELECT i.id, i.name, m.user, i.definition, i.state, i.damaged,"
                               " i.reserved, i.compress FROM instances i"
                               " JOIN machines m ON m.id = i.machine WHERE i.id = ?1"};
    Statement openInstance{
        db,
        "INSERT INTO instances(name, machine, definition, base, state, compress)"
        " VALUES(?1, ?2, ?3, coalesce((SELECT id FROM instances WHERE machine = ?2"
        " AND definition = ?3 AND completion > 0 ORDER BY completion DESC LIMIT 1), 0), 0, ?4)"};
    Statement startInstance{db,
                            "UPDATE instances SET state = 1, starttime = ?2, totalfiles = ?3,"
                            " totaldirectories = ?4, totalsize = ?5 WHERE id = ?1"};
    Statement findBase{db, "SELECT base FROM instances WHERE id = ?1"};
    Statement setCompress{db, "UPDATE instances SET compress = ?2 WHERE id = ?1"};
    Statement carryOver{
        db,
        "INSERT OR REPLACE INTO files SELECT ?1, path, kind, attributes, mtime, compress, size,"
        " blocks, container, offset FROM files f WHERE instance = ?2 AND path = ?3 AND kind = 1"
        " AND mtime = ?4 AND blocks * 131072 >= size AND NOT EXISTS"
        " (SELECT 1 FROM errors e WHERE e.instance = ?2 AND e.path = f.path)"};
    Statement await{db, "INSERT OR REPLACE INTO files VALUES(?1, ?2, 0, x'', ?3, ?4, 0, 0, 0, 0)"};

    Statement findFile{db,
                       "SELECT kind, attributes, mtime, compress, size, blocks, container, offset"
                       " FROM files WHERE instance = ?1 AND path = ?2"};
    Statement putFile{db, "INSERT OR REPLACE INTO files VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10)"};
    Statement setReserved{db, "UPDATE instances SET reserved = ?2 WHERE id = ?1"};
    Statement setBlocks{db, "UPDATE files SET blocks = ?3 WHERE instance = ?1 AND path = ?2"};
    Statement findIncomplete{db,
                             "SELECT path FROM files f WHERE instance = ?1"
                             " AND (kind = 0 OR blocks * 131072 < size) AND NOT EXISTS"
                             " (SELECT 1 FROM errors e WHERE e.instance = ?1 AND e.path = f.path)"
                             " LIMIT 1"};
    Statement packedLength{db,
                           "SELECT coalesce(max(offset + size), 0) FROM files WHERE instance = ?1"
                           " AND container = ?1 AND size > 0 AND blocks * 131072 >= size"};

    Statement damageInstance{db, "UPDATE instances SET damaged = 1 WHERE id = ?1"};

    Statement addError{db, "INSERT OR REPLACE INTO errors VALUES(?1, ?2, ?3, ?4)"};
    Statement findError{db, "SELECT code, reason FROM errors WHERE instance = ?1 AND path = ?2"};

    Statement dropIncomplete{db,
                             "DELETE FROM files WHERE instance = ?1"
                             " AND (kind = 0 OR blocks * 131072 < size)"};
    Statement completeInstance{
        db,
        "UPDATE instances AS i SET state = 2, endtime = ?2, completion = 1 + (SELECT"
        " max(completion) FROM instances j WHERE j.machine = i.machine"
        " AND j.definition = i.definition) WHERE id = ?1"};
    Statement dropFiles{db, "DELETE FROM files WHERE instance = ?1"};
    Statement cancelInstance{db, "UPDATE instances SET state = 3, reserved = 0 WHERE id = ?1"};
    Statement listInstances{
        db,
        "SELECT m.name, i.definition, i.name, i.starttime, i.endtime, i.state, i.totalfiles,"
        " i.totaldirectories, i.totalsize,"
        " (SELECT count(*) FROM errors e WHERE e.instance = i.id)"
        " FROM instances i JOIN machines m ON m.id = i.machine WHERE m.user = ?1"
        " AND (?2 = '' OR m.name = ?2) AND (?3 = '' OR i.definition = ?3) ORDER BY i.id"};
};

}  // namespace dorvo
