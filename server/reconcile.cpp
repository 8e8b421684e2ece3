#include "reconcile.h"

#include <algorithm>
#include <stdexcept>
#include <unordered_map>
#include <unordered_set>

#include "common/digest.h"
#include "common/files.h"
#include "packages/backup_packages.h"
#include "packages/package_marker.h"

namespace dorvo {

namespace fs = std::filesystem;

namespace {

using Log = std::function<void(const std::string&)>;

std::string newIdentity() {
    return hexText(randomBytes(16));
}

[[noreturn]] void refuseEmptyCatalog(const FileBlockStore& blocks) {
    throw std::runtime_error("the catalog knows no backup, but there are packages in " +
                             blocks.folder().string() +
                             ": put catalog.db back, or move the packages away to begin anew");
}

// What sqlite finds wrong, empty when nothing.
std::string damageOf(const fs::path& catalog) {
    try {
        Database database(catalog.string());
        // It may be another catalog's, left beside a copy that was put back, which it would spoil.
        database.leaveLog();
        Statement check(database, "PRAGMA quick_check(1)");
        auto rows = check.query();
        const std::string verdict = rows.next() ? std::string(rows.text(0)) : "no answer";
        return verdict == "ok" ? "" : verdict;
    } catch (const std::exception& error) {
        return error.what();
    }
}

// Throws unless these packages are the catalog's, as far as the marker tells.
void requireOwnPackages(SqliteCatalog& catalog, const SqliteCatalog::Service& service,
                        const std::optional<PackageMarker>& marker, const FileBlockStore& blocks,
                        bool anyPackage) {
    if (service.empty && anyPackage) {
        refuseEmptyCatalog(blocks);
    }
    // Folders of earlier versions have no marker, and get theirs now.
    const bool first = service.generation == 0;
    if (!marker && (!first || (!anyPackage && catalog.hasBlocks()))) {
        throw std::runtime_error("the packages of the catalog are not in " +
                                 blocks.folder().string() +
                                 " (no file 'marker' there): mount their disk or put them back");
    }
    if (marker && !first && !marker->identity.empty() && marker->identity != service.identity) {
        throw std::runtime_error("the packages in " + blocks.folder().string() +
                                 " belong to another catalog than catalog.db: put back the one "
                                 "that goes with them");
    }
}

// Whose the bytes are that stand behind what the catalog has given away of a container: its own,
// lost with their last commits to a power cut, or those of a later catalog.
enum class Tails { ours, unknown };

void moveStrangersAside(SqliteCatalog& catalog, FileBlockStore& blocks,
                        const std::vector<FileBlockStore::Found>& found, Tails tails,
                        const Log& log) {
    std::unordered_map<int64_t, int64_t> given;
    for (const auto& container : catalog.listContainers()) {
        given[container.id] = container.given;
    }
    const std::vector<int64_t> list = catalog.listGivenUp();
    const std::unordered_set<int64_t> givenUp(list.begin(), list.end());
    std::vector<int64_t> strangers;
    for (const auto& file : found) {
        const auto known = given.find(file.container);
        if (known == given.end()) {
            if (!givenUp.contains(file.container)) {
                strangers.push_back(file.container);
            }
        } else if (file.length > known->second) {
            catalog.takeInTail(file.container, file.length, tails == Tails::unknown);
            log("start: package file " + std::to_string(file.container) + " is longer by " +
                std::to_string(file.length - known->second) + " bytes than the catalog knows" +
                (tails == Tails::ours ? ", as a power cut leaves it" : "; they are kept"));
        }
    }
    if (!strangers.empty()) {
        // Whoever finds them later must not find another file under their number.
        catalog.skipNumbers(*std::max_element(strangers.begin(), strangers.end()));
    }
    for (const int64_t container : strangers) {
        log("start: package file " + std::to_string(container) +
            " is in no backup of the catalog; it is now " + blocks.setAside(container).string());
    }
}

}  // namespace

void requireSoundCatalog(const fs::path& catalog, const FileBlockStore& blocks) {
    if (!fs::exists(catalog) || fs::file_size(catalog) == 0) {
        if (!blocks.list().empty()) {
            refuseEmptyCatalog(blocks);
        }
        return;
    }
    if (const std::string damage = damageOf(catalog); !damage.empty()) {
        throw std::runtime_error(catalog.string() + " is damaged (" + damage +
                                 "): nothing was changed, put a copy of it back");
    }
}

void reconcile(SqliteCatalog& catalog, FileBlockStore& blocks, std::string_view boot,
               const Log& log) {
    const SqliteCatalog::Service service = catalog.service();
    auto marker = readMarker(blocks.folder());
    const auto found = blocks.list();
    requireOwnPackages(catalog, service, marker, blocks, !found.empty());
    if (!marker) {
        marker = PackageMarker{newIdentity(), 0};
        if (makeFolder(blocks.folder())) {
            syncFolder(blocks.folder().parent_path());
        }
        writeMarker(blocks.folder(), *marker);
    }
    const bool older = marker->generation > service.generation;
    using End = SqliteCatalog::LastEnd;
    const End end = catalog.lastEnd(boot);
    if (older) {
        log("start: catalog.db is older than the packages");
        for (const std::string& name : catalog.abandonOpen()) {
            log("start: backup " + name +
                " may have gone on under a later catalog: it is cancelled, its packages are moved "
                "aside");
        }
    }
    // No backup that is completed has bytes there unless the catalog is an older one.
    moveStrangersAside(catalog, blocks, found,
                       end == End::lostPower && !older ? Tails::ours : Tails::unknown, log);
    if (marker->identity.empty() && service.identity.empty()) {
        marker->identity = newIdentity();
    }
    if (end != End::inOrder) {
        const KeptAfterCrash kept = keepWhatIsWhole(catalog, blocks);
        log(std::string("start: the ") + (end == End::died ? "service died" : "machine went down") +
            " while serving; of " + std::to_string(kept.packages) +
            " packages of unfinished backups that no sync point covers " +
            std::to_string(kept.shortened) + " have lost bytes");
    }
    catalog.beginService(boot, marker->identity, marker->generation);
    freeGivenUp(catalog, blocks);
}

}  // namespace dorvo
