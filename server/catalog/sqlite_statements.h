// The catalog's prepared statements, one place for all SQL that requests run.
#pragma once

#include <string>

#include "catalog/instances.h"
#include "catalog/sqlite.h"

namespace dorvo {

struct SqliteStatements {
    explicit SqliteStatements(const Database& database) : db(database) {}

    const Database& db;

    // Pieces that several statements share.
    const std::string selectInstance =
        "SELECT i.id, i.name, m.user, m.name, i.definition, i.state, i.damaged,"
        " i.compress, i.totalfiles, i.totaldirectories, i.totalsize, i.items, i.idle FROM"
        " instances i"
        " JOIN machines m ON m.id = i.machine ";
    const std::string incomplete =
        "(kind = 0 OR blocks * " + std::to_string(blockBytes) + " < size)";
    // As sqliteFile() reads them.
    const std::string selectFile =
        "SELECT path, kind, attributes, mtime, compress, size, blocks, f.container, f.offset,"
        " seal, coalesce(c.instance, 0)";
    const std::string fromFiles = " FROM files f LEFT JOIN containers c ON c.id = f.container ";

    Statement addUser{db, "INSERT OR IGNORE INTO users(name, password) VALUES(?1, ?2)"};
    Statement findPassword{db, "SELECT password FROM users WHERE name = ?1"};

    Statement findKeys{db, "SELECT keysmd5 FROM users WHERE id = ?1"};
    Statement putKeys{db, "UPDATE users SET keysmd5 = ?2 WHERE id = ?1 AND keysmd5 IN ('', ?2)"};

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
    Statement lastUse{db, "SELECT coalesce(max(used), 0) FROM sessions"};
    Statement removeSession{db, "DELETE FROM sessions WHERE token = ?1"};

    Statement findInstanceByName{db, selectInstance + "WHERE i.user = ?1 AND i.name = ?2"};
    Statement findInstanceById{db, selectInstance + "WHERE i.id = ?1"};
    Statement passTime{db, "UPDATE instances SET idle = idle + ?1 WHERE state < 2"};
    Statement listIdle{db, "SELECT id FROM instances WHERE state < 2 AND idle >= ?1"};
    Statement useInstance{db, "UPDATE instances SET idle = 0 WHERE id = ?1"};
    Statement openInstance{
        db,
        "INSERT INTO instances(user, name, machine, definition, base, state, compress)"
        " VALUES(?5, ?1, ?2, ?3, coalesce((SELECT id FROM instances WHERE machine = ?2"
        " AND definition = ?3 AND completion > 0 ORDER BY completion DESC LIMIT 1), 0), 0, ?4)"};
    Statement startInstance{db,
                            "UPDATE instances SET state = 1, starttime = ?2, totalfiles = ?3,"
                            " totaldirectories = ?4, totalsize = ?5 WHERE id = ?1"};
    Statement findBase{db, "SELECT base, state FROM instances WHERE id = ?1"};
    Statement setCompress{db, "UPDATE instances SET compress = ?2 WHERE id = ?1"};
    Statement carryOver{
        db,
        "INSERT OR REPLACE INTO files SELECT ?1, path, kind, attributes, mtime, compress, size,"
        " blocks, container, offset, seal FROM files f WHERE instance = ?2 AND path = ?3"
        " AND kind = 1 AND mtime = ?4 AND NOT EXISTS"
        " (SELECT 1 FROM errors e WHERE e.instance = ?2 AND e.path = f.path) AND NOT EXISTS"
        " (SELECT 1 FROM damaged d WHERE d.container = f.container AND d.offset = f.offset"
        " AND f.size > 0) AND NOT " +
            incomplete};
    Statement await{
        db, "INSERT OR REPLACE INTO files VALUES(?1, ?2, 0, x'', ?3, ?4, 0, 0, 0, 0, NULL)"};

    Statement findFile{db, selectFile + fromFiles + "WHERE f.instance = ?1 AND path = ?2"};
    Statement putFile{db,
                      "INSERT OR REPLACE INTO files VALUES(?1,?2,?3,?4,?5,?6,?7,?8,?9,?10,?11)"};
    // What a container without digests has room for is left to itself.
    Statement newestContainer{db,
                              "SELECT id, given FROM containers WHERE instance = ?1"
                              " AND digests = 1 ORDER BY id DESC LIMIT 1"};
    Statement addContainer{db,
                           "INSERT INTO containers(instance, given, digests) VALUES(?1, ?2, 1)"};
    Statement setGiven{db, "UPDATE containers SET given = ?2 WHERE id = ?1"};

    Statement setBlocks{db, "UPDATE files SET blocks = ?3 WHERE instance = ?1 AND path = ?2"};
    // The MD5 of one more block, behind those of the blocks before it; containers of earlier
    // versions have none from the first block on. Two blobs joined are a text.
    Statement putDigest{db,
                        "INSERT INTO digests SELECT ?1, ?2, ?3, ?4 WHERE"
                        " (SELECT digests FROM containers WHERE id = ?1) = 1"
                        " ON CONFLICT DO UPDATE SET stamp = excluded.stamp,"
                        " md5s = CAST(substr(md5s, 1, ?5) || excluded.md5s AS BLOB)"};
    Statement findDigest{
        db,
        "SELECT (SELECT substr(md5s, ?3, 16) FROM digests WHERE container = ?1 AND position = ?2),"
        " (SELECT digests FROM containers WHERE id = ?1)"};
    Statement dropDigests{
        db,
        "DELETE FROM digests WHERE container = ?1 AND position IN (SELECT"
        " position FROM digests WHERE container = ?1 ORDER BY position LIMIT ?2)"};
    Statement setSynced{db, "UPDATE service SET synced = ?1"};
    // All of a package without digests.
    Statement findUnsynced{
        db,
        "SELECT CASE WHEN (SELECT digests FROM containers WHERE id = ?1) = 1 THEN (SELECT"
        " min(position) FROM digests WHERE container = ?1 AND position >= ?2 AND position < ?3"
        " AND stamp > ?4) ELSE ?2 END"};
    Statement listRunning{db, "SELECT id FROM instances WHERE state = 1 AND damaged = 0"};
    Statement damagePackage{db, "INSERT OR IGNORE INTO damaged VALUES(?1, ?2)"};
    Statement forgetDamage{db, "DELETE FROM damaged WHERE container = ?1"};
    Statement listItems{db, selectFile + ", f.size > 0 AND d.container IS NOT NULL" + fromFiles +
                                "LEFT JOIN damaged d ON d.container = f.container AND d.offset ="
                                " f.offset WHERE f.instance = ?1 AND path > ?2 ORDER BY path"
                                " LIMIT ?3"};
    Statement awaitAgain{db,
                         "UPDATE files SET kind = 0, size = 0, blocks = 0, container = 0,"
                         " offset = 0, seal = NULL WHERE instance = ?1 AND path = ?2"};
    // The next four: of a stretch.
    Statement listIncomplete{
        db,
        "SELECT path FROM files f WHERE instance = ?1 AND path > ?2 AND path <= ?3"
        " AND NOT EXISTS"
        " (SELECT 1 FROM errors e WHERE e.instance = ?1 AND e.path = f.path) AND " +
            incomplete + " LIMIT ?4"};
    Statement listPacked{
        db,
        "SELECT container, max(offset + size) FROM files WHERE instance = ?1 AND path > ?2"
        " AND path <= ?3 AND size > 0"
        " AND container IN (SELECT id FROM containers WHERE instance = ?1) AND NOT " +
            incomplete + " GROUP BY container"};
    Statement dropIncomplete{
        db, "DELETE FROM files WHERE instance = ?1 AND path > ?2 AND path <= ?3 AND " + incomplete};
    Statement dropFiles{db, "DELETE FROM files WHERE instance = ?1 AND path > ?2 AND path <= ?3"};
    // The path of the file that is so many behind that path.
    Statement skipFiles{db,
                        "SELECT path FROM files WHERE instance = ?1 AND path > ?2 ORDER BY path"
                        " LIMIT 1 OFFSET ?3"};

    // The row of the one table goes as that of the other comes: a container that both have, or
    // neither, is on no record as given up.
    Statement giveUp{db,
                     "INSERT OR IGNORE INTO given_up SELECT id FROM containers"
                     " WHERE instance = ?1 AND NOT keep"};
    Statement dropContainers{db, "DELETE FROM containers WHERE instance = ?1"};
    Statement listGivenUp{
        db, "SELECT container FROM given_up WHERE container NOT IN (SELECT id FROM containers)"};
    // From one container that has digests to the next, whatever the number of its rows.
    Statement listStrangers{
        db,
        "WITH RECURSIVE known(id) AS (SELECT min(container) FROM digests UNION ALL SELECT (SELECT"
        " min(container) FROM digests WHERE container > known.id) FROM known WHERE id IS NOT NULL)"
        " SELECT id FROM (SELECT id FROM known UNION SELECT container FROM damaged) WHERE id IS NOT"
        " NULL AND id NOT IN (SELECT id FROM containers)"
        " AND id NOT IN (SELECT container FROM given_up)"};
    Statement forgetGivenUp{db, "DELETE FROM given_up WHERE container = ?1"};

    Statement damageInstance{db, "UPDATE instances SET damaged = 1 WHERE id = ?1"};
    Statement damageContainer{db,
                              "UPDATE instances SET damaged = 1 WHERE state < 2 AND id = (SELECT"
                              " instance FROM containers WHERE id = ?1)"};

    Statement addError{db, "INSERT OR REPLACE INTO errors VALUES(?1, ?2, ?3, ?4)"};
    Statement countErrors{db, "SELECT count(*) FROM errors WHERE instance = ?1"};
    Statement hasError{db, "SELECT 1 FROM errors WHERE instance = ?1 AND path = ?2"};

    Statement completeInstance{
        db,
        "UPDATE instances AS i SET state = 2, endtime = ?2, items = ?3, completion = 1 + (SELECT"
        " max(completion) FROM instances j WHERE j.machine = i.machine"
        " AND j.definition = i.definition) WHERE id = ?1 AND damaged = 0"};
    Statement nextGeneration{db, "UPDATE service SET generation = generation + 1"};
    Statement cancelInstance{db, "UPDATE instances SET state = 3 WHERE id = ?1"};
    Statement listHalfCancelled{db,
                                "SELECT id FROM instances i WHERE state = 3 AND EXISTS"
                                " (SELECT 1 FROM files f WHERE f.instance = i.id)"};
    Statement listInstances{
        db,
        "SELECT m.name, i.definition, i.name, i.starttime, i.endtime, i.state, i.totalfiles,"
        " i.totaldirectories, i.totalsize,"
        " (SELECT count(*) FROM errors e WHERE e.instance = i.id), i.id"
        " FROM instances i JOIN machines m ON m.id = i.machine WHERE i.id IN"
        " (SELECT j.id FROM instances j JOIN machines n ON n.id = j.machine WHERE n.user = ?1"
        " AND (?2 = '' OR n.name = ?2) AND (?3 = '' OR j.definition = ?3) AND j.id > ?4"
        " ORDER BY j.id LIMIT ?5) ORDER BY i.id"};

    Statement listFiles{db, selectFile + fromFiles +
                                "WHERE f.instance = ?1 AND path >= ?2 AND path < ?3 ORDER BY path"
                                " LIMIT ?4"};
    Statement openRestore{
        db, "INSERT INTO restores(name, machine, definition, instance) VALUES(?1, ?2, ?3, ?4)"};
    Statement findRestore{db,
                          "SELECT r.id, m.user FROM restores r JOIN machines m ON m.id = r.machine"
                          " WHERE r.name = ?1"};
    Statement listOldRestores{db,
                              "SELECT r.id FROM restores r JOIN machines m ON m.id = r.machine"
                              " WHERE m.user = ?1 ORDER BY r.id DESC LIMIT -1 OFFSET ?2"};
    Statement dropRestore{db, "DELETE FROM restores WHERE id = ?1"};
    Statement dropRestoreErrors{db,
                                "DELETE FROM restore_errors WHERE restore = ?1 AND path IN"
                                " (SELECT path FROM restore_errors WHERE restore = ?1 LIMIT 1000)"};
    Statement findRestoreError{db, "SELECT 1 FROM restore_errors WHERE restore = ?1 AND path = ?2"};
    Statement countRestoreErrors{db, "SELECT count(*) FROM restore_errors WHERE restore = ?1"};
    Statement addRestoreError{db, "INSERT OR REPLACE INTO restore_errors VALUES(?1, ?2, ?3, ?4)"};
    Statement putHistory{db, "UPDATE restores SET history = ?2 WHERE id = ?1"};
};

}  // namespace dorvo
