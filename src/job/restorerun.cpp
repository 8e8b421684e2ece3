#include "job/restorerun.h"

#include "base/http_error.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/rm_rf.h"
#include "base/text.h"
#include "base/volume_root.h"
#include "job/madefolders.h"
#include "job/restoreitems.h"
#include "job/restorelist.h"
#include "source/speedcalc.h"
#include "storage/itemtemppath.h"

namespace dorvo {
namespace {

constexpr const char* lostItemsText = "the storage has lost items of the backup's list";

}  // namespace

JobState RestoreRun::carryOut() {
    if (!begin("Start event set.\n")) {
        return endCode();
    }
    const SpeedCalc speed(record_, [this] { job_.activity().publish(); });
    log(LogLevel::debug, "Speed calculater registered.\n");
    if (!takeUp()) {
        return endCode();
    }
    // The item is decoded anew, or somebody has gone on with what this run does not know of.
    job_.placing_.removeSibling();
    PlacingRecord::sweep();
    log(LogLevel::debug, "Job history information loaded.\n");
    const JobState end = prepare() ? RestoreItems(job_, reader_, list_).process() : endCode();
    reader_.close();
    return end;
}

bool RestoreRun::prepare() {
    if (!carryOn() || !findRoot() || !makeList()) {
        return false;
    }
    if (!reader_.open(list_, static_cast<int64_t>(record_.sourcePosition))) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to open job activity source file to read, error = %d, %s.\n",
            static_cast<int>(keep.error()), job_.reasonText(keep.error()).c_str());
        return failUnlessHeld(keep.error());
    }
    log(LogLevel::debug, "Job source reader ready.\n");
    return startStorage("Start to restore files/directories.\n");
}

// Without its drive or share every single item would be fetched for nothing.
bool RestoreRun::findRoot() {
    const std::wstring& target = job_.restore().target();
    const std::wstring root = std::wstring(volumeRootOf(target)) + L"\\";
    if (target.empty() || GetFileAttributesW(longPath(root).c_str()) != INVALID_FILE_ATTRIBUTES) {
        return true;
    }
    LastErrorGuard keep;
    const bool missing =
        keep.error() == ERROR_FILE_NOT_FOUND || keep.error() == ERROR_PATH_NOT_FOUND;
    keep.set(missing ? DWORD{ERROR_INVALID_DRIVE} : keep.error());
    log(LogLevel::error, "The place to restore to {%s} is not there, error-code = %d, %s.\n",
        toUtf8(root).c_str(), static_cast<int>(keep.error()),
        job_.reasonText(keep.error()).c_str());
    // What has brought items there waits for it, as for its server.
    return resumed_ ? pause(keep.error()) : refuse(keep.error());
}

bool RestoreRun::makeList() {
    if (listed_) {
        return true;
    }
    // Item numbers begin anew, and packages and files in their places are known by them.
    rm_rf(itemTempFolder(job_.definition().id()), false);
    job_.placing_.finish();
    if (!beginList() || !forgetMadeFolders()) {
        return false;
    }
    if (!generateList()) {
        LastErrorGuard keep;
        log(LogLevel::error, "Failed to generate activity source file, error = %d, %s.\n",
            static_cast<int>(withoutHttpMark(keep.error())), job_.reasonText(keep.error()).c_str());
        return failOrWait(keep.error());
    }
    log(LogLevel::debug,
        "Job source list generated, total size is %Q, total files is %d, total directories is "
        "%d.\n",
        record_.totalSize, record_.fileCount, record_.directoryCount);
    return carryOn();
}

bool RestoreRun::forgetMadeFolders() {
    return MadeFolders::forget(madeFoldersPath(list_)) || failUnlessHeld(GetLastError());
}

bool RestoreRun::generateList() {
    const std::unique_ptr<RestoreCatalog> catalog = job_.createCatalog();
    if (!catalog) {
        return false;
    }
    const interrupter stop(job_.stopEvent());
    RestoreListGenerator generator({.catalog = catalog.get(),
                                    .stop = &stop,
                                    .failedItem = [&](const std::wstring& path, DWORD error) {
                                        addFailed(path, error,
                                                  error == errorLostBytes ? lostItemsText : "");
                                    }});
    if (!generator.generate(list_, job_.restore().source())) {
        return false;
    }
    if (!allRecorded()) {
        return false;
    }
    const SourceCalculator& found = generator.totals();
    const SourceTotals totals{found.directoryCount(), found.fileCount(), found.fileSize()};
    return endList(totals, totals);
}

}  // namespace dorvo
