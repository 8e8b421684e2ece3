#include "job/backupnotes.h"

#include "base/log.h"
#include "base/text.h"
#include "job/restorepath.h"
#include "source/sourcewalk.h"

namespace dorvo {
namespace {

using Kind = JobHistoryNotes::Kind;

constexpr const char* ownDataText =
    "of the agent's own folder, backups hold settings, exclusions and definitions of jobs only";
constexpr const char* noSnapshotText =
    "there can be no snapshot of this volume, so its files were read while they could change";
constexpr const char* awayText =
    "this volume did not answer, so it has no snapshot: what is there by now was read while it "
    "could change";
constexpr const char* nothingPassedText =
    "the job's filter by extension lets no file through: the backup holds folders only";
constexpr const char* behindLinkText =
    "a link to another place, which has no snapshot: files there were read while they could change";

}  // namespace

BackupNotes::BackupNotes(const std::wstring& document, bool keep) : notes_(toUtf8(document)) {
    if (!keep) {
        notes_.clear();
    }
}

bool BackupNotes::leavesOut(const ComparablePath& path) {
    if (!own_.leavesOut(path)) {
        return false;
    }
    notes_.addOnce(Kind::leftOut, own_.directory(), ownDataText);
    return true;
}

// What a restore would refuse is said while the name can still be changed. The folders above have
// been found before: it is the last name that counts.
void BackupNotes::found(const std::wstring& path) {
    const std::wstring name = path.substr(path.rfind(L'\\') + 1);
    if (name.empty() || name.back() == L':') {
        return;
    }
    const std::wstring alone = L"C:\\" + name;
    const RestorePathFault fault = checkRestorePath({.original = alone, .target = alone});
    if (fault != RestorePathFault::none) {
        notes_.add(Kind::warning, path,
                   std::string("it is backed up, but no restore can bring it back: ") +
                       restorePathText(fault));
    }
}

void BackupNotes::notEntered(const std::wstring& path, DWORD reparseTag) {
    notes_.add(Kind::leftOut, path, notEnteredText(path, reparseTag));
}

void BackupNotes::nothingPassed(const std::string& jobId) {
    notes_.addOnce(Kind::warning, {}, nothingPassedText);
    log(LogLevel::warning, "The filter of job {%s} lets no file through.\n", jobId);
}

void BackupNotes::readLive(const VolumeMap& volumes, const VSSRequester& snapshots) {
    for (const auto& [path, volume] : volumes) {
        if (volume->shadowPath.empty()) {
            const char* const reason = snapshots.wasAway(path) ? awayText : noSnapshotText;
            if (notes_.addOnce(Kind::warning, path, reason)) {
                log(LogLevel::warning,
                    "No snapshot of volume {%s}, its files are read as they are.\n", toUtf8(path));
            }
            continue;
        }
        for (const std::wstring& source : volume->sources) {
            if (const std::wstring link = firstLinkIn(source, path); !link.empty()) {
                notes_.addOnce(Kind::warning, link, behindLinkText);
            }
        }
    }
    save();
}

}  // namespace dorvo
