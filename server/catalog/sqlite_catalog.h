// The catalog in one SQLite database.
//
// The database runs with a write-ahead log. A commit appends to the log without waiting for the
// disk: that survives the death of the process, which the system's page cache does not share. A
// durable commit also syncs the log, and with it everything committed before. A power cut can thus
// take the last commits, in reverse order, but never tear one, and never what stands before a
// durable one.
//
// A backup that was under way during a power cut may have lost package bytes that the database
// remembers. The database keeps the identity of the machine's boot that wrote to it; when it is
// opened for service under another one without having been closed in order, such backups are
// looked at: its blocks carry the number of the sync point that covers them. One that was not even
// started is marked damaged, for what was offered may be lost.
//
// There is one connection and one lock. What concerns all files of a backup is done in pieces, each
// a transaction of its own, and other calls get the lock between them. Another program that has the
// database, such as the one that adds accounts, is waited for without the lock: whom it leaves
// something goes on meanwhile.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "catalog/catalog.h"
#include "catalog/database_turn.h"
#include "catalog/sqlite.h"
#include "catalog/turn_mutex.h"

namespace dorvo {

class Checkpointer;
struct SqliteStatements;

class SqliteCatalog : public Catalog {
public:
    // Hears of each backup that has been completed, on its thread and before its caller does.
    // Throws nothing.
    using Completed = std::function<void()>;

    // How long another program that writes to the database is waited for.
    static constexpr std::chrono::seconds usualPatience{10};

    // Opens or creates the database, and brings one of an earlier version up to date. Throws when
    // it is of a later one.
    explicit SqliteCatalog(const std::string& path, Completed completed = {},
                           std::chrono::milliseconds patience = usualPatience);
    ~SqliteCatalog() override;
    // Whether opening the database would leave its tables as they are.
    static bool isUpToDate(const std::string& path);

    // What ties the catalog to its packages.
    struct Service {
        std::string identity;  // the same text in the packages' marker; empty before the first one
        int64_t generation = 0;  // see Generations; a power cut does not take it back
        bool empty = true;       // there has never been a backup
    };
    Service service();
    // Any file of any backup has bytes in some container.
    bool hasBlocks();
    // How service ended the last time: `died` with the process, `lostPower` with the machine, which
    // has been started anew.
    enum class LastEnd : uint8_t { inOrder, died, lostPower };
    LastEnd lastEnd(std::string_view boot);
    // Begins service under this boot of the machine, see above; takes an identity if one is given,
    // and a generation above the packages'. Durable. The caller has seen to the running backups
    // unless the last one ended in order.
    void beginService(std::string_view boot, std::string_view identity, int64_t generation);
    // Begins a new generation if anything has changed since the last one. Durable.
    void nextGeneration();
    // A sync point that covers whatever an earlier service has stored. Before blocks are stored.
    void everythingIsSynced();
    // Ends service in order. Durable. The caller has made the package bytes durable before.
    void endService();
    // Goes on with cancelling where the last process died at it, and forgets what is kept of
    // containers that nobody has any more.
    void finishCancelling();

    // Which containers are some instance's, and how much of each has been given away.
    struct Container {
        int64_t id = 0;
        int64_t given = 0;
    };
    std::vector<Container> listContainers();
    // Makes up for a container that is longer than was given away: what was behind stays as it is.
    // `keep`: it may be of a later catalog, so the container is not given up any more but
    // forgotten. Durable, as the next two.
    void takeInTail(int64_t container, int64_t length, bool keep);
    // New containers get higher numbers than this one.
    void skipNumbers(int64_t container);
    // Cancels all instances that are under way, those without bytes too: what they were offered
    // later is nowhere. Their bytes are not given up but forgotten. Their files go with
    // finishCancelling(). The instances' names.
    std::vector<std::string> abandonOpen();

    bool addUser(std::string_view name, std::string_view passwordHash) override;
    std::optional<std::string> findPassword(std::string_view user) override;

    std::string findKeys(int64_t user) override;
    bool putKeys(int64_t user, std::string_view md5) override;

    void addSession(std::string_view tokenHash, std::string_view user, std::string_view machine,
                    int64_t now, int64_t lifetime) override;
    std::optional<Session> findSession(std::string_view tokenHash, int64_t now,
                                       int64_t lifetime) override;
    int64_t lastUse() override;
    void removeSession(std::string_view tokenHash) override;

    std::optional<Instance> findInstance(int64_t user, std::string_view name) override;
    std::optional<Instance> findInstance(int64_t id) override;
    std::vector<int64_t> listIdle(int64_t passed, int64_t limit) override;
    void useInstance(int64_t instance) override;
    Instance openInstance(const Session& session, std::string_view name,
                          std::string_view definition, bool compress) override;
    void startInstance(int64_t instance, std::string_view startTime,
                       const InstanceTotals& totals) override;
    std::vector<bool> offerFiles(int64_t instance, const std::vector<OfferedFile>& files,
                                 bool compress, bool first) override;

    std::optional<StoredFile> findFile(int64_t instance, std::string_view path) override;
    void putFile(int64_t instance, std::string_view path, const StoredFile& file) override;
    void placeFile(int64_t instance, std::string_view path, StoredFile file,
                   int64_t limit) override;
    void putBlock(int64_t instance, std::string_view path, const StoredFile& file, int64_t k,
                  std::string_view md5) override;
    void dropBlocks(int64_t instance, const std::vector<KeptBlocks>& files) override;
    std::optional<std::string> findDigest(const StoredFile& file, int64_t k) override;
    int64_t beginSyncPoint() override;
    void endSyncPoint(int64_t stamp) override;
    void syncChanges() override;
    std::optional<int64_t> findUnsynced(const StoredFile& file) override;
    std::vector<int64_t> listRunning() override;
    bool damagePackage(const StoredFile& file) override;
    std::vector<CatalogItem> listItems(int64_t instance, std::string_view after,
                                       size_t limit) override;
    void awaitAgain(int64_t instance, const std::vector<CatalogItem>& items) override;
    std::vector<std::string> listIncomplete(int64_t instance, size_t limit, size_t bytes) override;
    void damageInstance(int64_t instance) override;
    void damageContainer(int64_t container) override;
    std::vector<PackedContainer> listPacked(int64_t instance) override;
    std::vector<int64_t> listGivenUp() override;
    void forgetGivenUp(int64_t container) override;

    void addErrors(int64_t instance, const std::vector<FailedFile>& errors) override;
    int64_t countErrors(int64_t instance) override;
    bool hasError(int64_t instance, std::string_view path) override;

    bool completeInstance(int64_t instance, std::string_view endTime, int64_t items) override;
    void cancelInstance(int64_t instance) override;
    std::vector<InstanceSummary> listInstances(int64_t user, std::string_view machine,
                                               std::string_view definition, int64_t after,
                                               size_t limit) override;

    FilePage listFiles(int64_t instance, std::string_view from, std::string_view until,
                       size_t limit, size_t bytes) override;
    void openRestore(const Session& session, std::string_view name, std::string_view definition,
                     int64_t instance, size_t kept) override;
    std::optional<Restore> findRestore(std::string_view name) override;
    void addRestoreErrors(int64_t restore, const std::vector<FailedFile>& errors,
                          size_t kept) override;
    void putHistory(int64_t restore, std::string_view history) override;

private:
    // A stretch of a backup's files: those with after < path <= last.
    struct Stretch {
        std::string after;
        std::string last;
    };

    using Access = DatabaseTurn::Access;
    DatabaseTurn turn(Access access = Access::read) {
        return {mutex_, database_, access, patience_};
    }
    // Makes the change in one turn.
    void write(const std::function<void()>& change);
    // The same, and a power cut cannot take it.
    void durably(const std::function<void()>& change);
    // A turn for each step, between two of which those who wait for the lock have it, as long as
    // the step had. A step says whether another one follows.
    void inPieces(Access access, const std::function<bool()>& step);
    // Calls the step, which says whether to go on, for one stretch after the other. Nobody else
    // changes which files there are meanwhile.
    void eachStretch(int64_t instance, Access access,
                     const std::function<bool(const Stretch&)>& step);
    void dropFiles(int64_t instance);
    void dropRestore(int64_t restore);
    // Digests and damage of containers that are on no record: forgotten ones.
    void forgetStrangers();
    void forgetPackages(int64_t container);
    // Calls `add` for each, in transactions.
    void eachPiece(const std::vector<FailedFile>& errors,
                   const std::function<void(const FailedFile&)>& add);
    bool offerFile(int64_t instance, int64_t base, const OfferedFile& file, bool compress);

    // What the database says of sync points. In a turn.
    void readSynced();
    // These belong into a turn of the caller's.
    void storeFile(int64_t instance, std::string_view path, const StoredFile& file);
    void giveUpContainers(int64_t instance);

    const std::string path_;
    TurnMutex mutex_;  // guards the connection and its statements, and the stamps
    Database database_;
    std::unique_ptr<SqliteStatements> statements_;
    std::unique_ptr<Checkpointer> checkpointer_;
    // Of sync points: blocks are stamped with this number, and those up to the other are synced.
    int64_t stamp_ = 1;
    int64_t synced_ = 0;
    // Rows that this connection had changed when the generation began; guarded by mutex_ as well.
    int64_t changesBefore_ = 0;
    const Completed completed_;
    const std::chrono::milliseconds patience_;
};

}  // namespace dorvo
