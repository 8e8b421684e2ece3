// Backup instances: their files, the places of packages, blocks and their digests, errors. What all
// calls keep to stands in catalog.h.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "catalog/accounts.h"

namespace dorvo {

// Behind every path: they are UTF-8, which has no such byte.
inline constexpr std::string_view afterAllPaths = "\xff";

// Packages are stored in blocks of this size; the last one may be smaller.
inline constexpr int64_t blockBytes = 131072;

enum class InstanceState : uint8_t { pending = 0, running = 1, completed = 2, cancelled = 3 };

struct InstanceTotals {
    int64_t files = 0;
    int64_t directories = 0;
    int64_t size = 0;
};

struct Instance {
    int64_t id = 0;  // never used twice
    std::string name;
    int64_t userId = 0;
    std::string machine;
    std::string definition;
    InstanceState state = InstanceState::pending;
    bool damaged = false;   // it may have lost data, to a power cut or its disk: it never completes
    bool compress = false;  // what its files are unless they say otherwise
    InstanceTotals totals;  // as the client announced them
    int64_t idle = 0;       // seconds of service without a request about it, more or less
    int64_t items = -1;     // that it was completed with; -1 when nobody has counted
};

struct InstanceSummary {
    int64_t id = 0;
    std::string machine;
    std::string definition;
    std::string name;
    std::string startTime;
    std::string endTime;
    InstanceState state = InstanceState::pending;
    InstanceTotals totals;
    int64_t errors = 0;
};

// A file that the client has on its disk, as it asks whether to send it.
struct OfferedFile {
    std::string_view path;
    int64_t mtime = 0;
};

// awaited: it was offered and is to be sent, but its information has not come yet.
enum class FileKind : uint8_t { awaited = 0, file = 1, folder = 2 };

// The nine numbers of a file's attribute data, in the order of their names in the web requests.
using FileAttributes = std::array<uint32_t, 9>;

struct StoredFile {
    FileKind kind = FileKind::awaited;
    FileAttributes attributes{};
    int64_t mtime = 0;
    bool compress = false;
    int64_t size = 0;       // bytes of the package
    int64_t blocks = 0;     // blocks stored, without gaps from the first
    int64_t container = 0;  // where the package lies in the block store; 0 when it has no bytes
    int64_t offset = 0;
    int64_t owner = 0;  // the instance whose container that is
    bool sound = true;  // what stands here is what was written
};

// An item of a backup, for those who look at all of them.
struct CatalogItem {
    std::string path;
    StoredFile file;
    bool damaged = false;  // its package is known to have lost bytes
};

// A container of an instance, and how long it must be to hold the packages that count.
struct PackedContainer {
    int64_t id = 0;
    int64_t length = 0;
};

// How many blocks of a file are left.
struct KeptBlocks {
    std::string path;
    int64_t blocks = 0;
};

struct FailedFile {
    std::string path;
    int64_t code = 0;
    std::string reason;
};

struct ListedFile {
    std::string path;
    FileKind kind = FileKind::file;
    FileAttributes attributes{};
};

struct FilePage {
    std::vector<ListedFile> files;
    std::string last;   // the path of the last one that was looked at
    bool more = false;  // the range holds files behind it
};

class Instances {
public:
    virtual ~Instances() = default;

    // The user's of that name.
    virtual std::optional<Instance> findInstance(int64_t user, std::string_view name) = 0;
    virtual std::optional<Instance> findInstance(int64_t id) = 0;
    // Lets so many seconds pass for the instances that are under way, and gives those for which
    // `limit` have passed without a request.
    virtual std::vector<int64_t> listIdle(int64_t passed, int64_t limit) = 0;
    // There is a request about it.
    virtual void useInstance(int64_t instance) = 0;
    // Durable. Makes a pending instance, whose base is the job's last completed one. The name must
    // be new to the user.
    virtual Instance openInstance(const Session& session, std::string_view name,
                                  std::string_view definition, bool compress) = 0;
    // Durable, with what was offered before: from now on nobody would miss what is lost of that.
    virtual void startInstance(int64_t instance, std::string_view startTime,
                               const InstanceTotals& totals) = 0;
    // Carries over from the base what is whole, did not fail there and has the same time, awaits
    // the rest; either replaces what the instance had under that path. Says for each whether it is
    // to be sent. Durable once the instance is running. `first`: what the instance had is forgotten
    // before, and its containers given up. Piece by piece.
    virtual std::vector<bool> offerFiles(int64_t instance, const std::vector<OfferedFile>& files,
                                         bool compress, bool first) = 0;

    virtual std::optional<StoredFile> findFile(int64_t instance, std::string_view path) = 0;
    // Adds or replaces a file; its owner follows from its container.
    virtual void putFile(int64_t instance, std::string_view path, const StoredFile& file) = 0;
    // The same, and gives its package a place: behind what the instance's newest container has
    // given away, or in a new one where that would come to more than the limit.
    virtual void placeFile(int64_t instance, std::string_view path, StoredFile file,
                           int64_t limit) = 0;
    // Block k of the file is stored, those above are not any more. The MD5 is of its bytes, 16
    // bytes.
    virtual void putBlock(int64_t instance, std::string_view path, const StoredFile& file,
                          int64_t k, std::string_view md5) = 0;
    // Durable: of these files no more is stored. Comes before their bytes are overwritten or freed:
    // after a power cut nobody looks at what a sync point covers.
    virtual void dropBlocks(int64_t instance, const std::vector<KeptBlocks>& files) = 0;
    // The MD5 of the package's block k; nothing when none was kept in the days of its container,
    // and no MD5 at all when it has been lost.
    virtual std::optional<std::string> findDigest(const StoredFile& file, int64_t k) = 0;

    // The blocks that are counted up to here, the others come later. One sync point at a time.
    virtual int64_t beginSyncPoint() = 0;
    // The bytes of those blocks survive a power cut. With it, as a rule, everything that was
    // changed before this call.
    virtual void endSyncPoint(int64_t stamp) = 0;
    // Everything that was changed before this call survives a power cut.
    virtual void syncChanges() = 0;
    // The first of the file's blocks that no sync point covers.
    virtual std::optional<int64_t> findUnsynced(const StoredFile& file) = 0;
    // Instances that are running and not damaged.
    virtual std::vector<int64_t> listRunning() = 0;

    // Of a complete package, whoever refers to it: it is carried over no more. Whether that is
    // news.
    virtual bool damagePackage(const StoredFile& file) = 0;
    // The instance's items behind `after`, in the order of their paths' bytes, at most `limit`.
    // Others who wait for the catalog have had their turn when it returns that many.
    virtual std::vector<CatalogItem> listItems(int64_t instance, std::string_view after,
                                               size_t limit) = 0;
    // The instance has these items no more and awaits them; their packages are damaged.
    virtual void awaitAgain(int64_t instance, const std::vector<CatalogItem>& items) = 0;

    // The paths that are awaited or lack blocks, and are not on the error list: at most `limit`,
    // and no more than the one that brings their bytes to `bytes`.
    virtual std::vector<std::string> listIncomplete(int64_t instance, size_t limit,
                                                    size_t bytes) = 0;

    virtual void damageInstance(int64_t instance) = 0;
    // The instance that the container is of, while it is under way.
    virtual void damageContainer(int64_t container) = 0;

    // The instance's own containers that hold whole packages.
    virtual std::vector<PackedContainer> listPacked(int64_t instance) = 0;

    // The containers that no instance has any more; each is on record until it is forgotten, and
    // its number never comes again.
    virtual std::vector<int64_t> listGivenUp() = 0;
    virtual void forgetGivenUp(int64_t container) = 0;

    // A second error of the same path replaces the first. Piece by piece.
    virtual void addErrors(int64_t instance, const std::vector<FailedFile>& errors) = 0;
    virtual int64_t countErrors(int64_t instance) = 0;
    virtual bool hasError(int64_t instance, std::string_view path) = 0;

    // Durable, with everything that was changed before. Files that lack blocks leave the instance;
    // the error list has them, and `items` stay. They go piece by piece, the state is changed last.
    // False when the instance turns out to be damaged: it stays under way.
    [[nodiscard]] virtual bool completeInstance(int64_t instance, std::string_view endTime,
                                                int64_t items) = 0;
    // Gives up its containers and forgets its files, these piece by piece; it and its errors stay
    // in the lists. The state is changed first, which is durable: the bytes may go after it.
    virtual void cancelInstance(int64_t instance) = 0;

    // Oldest first, those behind the instance of that id, at most `limit`. Empty machine or
    // definition: all.
    virtual std::vector<InstanceSummary> listInstances(int64_t user, std::string_view machine,
                                                       std::string_view definition, int64_t after,
                                                       size_t limit) = 0;

    // The instance's sound files with from <= path < until, in the order of the paths' bytes: of
    // at most `limit` files, and none behind the one that brings the paths to `bytes`.
    virtual FilePage listFiles(int64_t instance, std::string_view from, std::string_view until,
                               size_t limit, size_t bytes) = 0;
};

}  // namespace dorvo
