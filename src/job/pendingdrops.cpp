#include "job/pendingdrops.h"

#include <windows.h>

#include <charconv>
#include <memory>
#include <mutex>
#include <utility>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/handle.h"
#include "base/last_error.h"
#include "base/local_time.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "base/text.h"
#include "base/uuid.h"
#include "job/jobdirectories.h"
#include "job/statetable.h"
#include "job/transferfailure.h"
#include "record/jobactivityhandle.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr wchar_t definitionName[] = L"\\def";
constexpr std::string_view serverPrefix = "http://";  // begins no absolute path
constexpr std::string_view refusedLine = "\nrefused ";
constexpr uint64_t hour = uint64_t{60} * 60 * ticksPerSecond;

// Keeps one change of the notes, of their folders, and of the definition beside those of removed
// jobs apart from another.
std::mutex changing;

// Where the notes of removed jobs are; empty when the folder query fails.
std::wstring handedOnRoot() {
    std::wstring path;
    return dataDirectory(path) ? path + L"\\drops" : std::wstring();
}

std::vector<std::wstring> namesIn(const std::wstring& folder) {
    std::vector<std::wstring> names;
    if (folder.empty()) {
        return names;
    }
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW((longPath(folder) + L"\\*").c_str(), &entry));
    for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.get(), &entry) != 0) {
        names.emplace_back(entry.cFileName);
    }
    return names;
}

// The names in a folder that are those of instances.
std::vector<std::string> instancesIn(const std::wstring& folder) {
    std::vector<std::string> instances;
    for (const std::wstring& name : namesIn(folder)) {
        GUID id{};
        if (std::string text = toUtf8(name); uuidFromText(text, id)) {
            instances.push_back(std::move(text));
        }
    }
    return instances;
}

std::string textOf(const PendingDrop& run) {
    if (!run.location.empty()) {
        return toUtf8(run.location);
    }
    std::string text = run.server.empty() ? std::string() : std::string(serverPrefix) + run.server;
    if (run.refusals != 0) {
        text.append(refusedLine).append(std::to_string(run.refusals));
    }
    return text;
}

// What of a note's text says where the run is.
std::string cutRefusals(std::string text, unsigned& refusals) {
    refusals = 0;
    if (const size_t line = text.rfind(refusedLine); line != std::string::npos) {
        std::from_chars(text.data() + line + refusedLine.size(), text.data() + text.size(),
                        refusals);
        text.erase(line);
    }
    return text;
}

bool read(const std::wstring& folder, const std::string& id, PendingDrop& run) {
    std::string text;
    bool whole = false;
    SharingRetry retry;
    do {
        // Whoever removes the job must not be kept from it.
        FileHandle file = openStoreForReading(
            folder + L"\\" + toWide(id), FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
        whole = file && readStore(std::move(file), text);
    } while (!whole && retry.again());
    if (!whole) {
        return false;
    }
    unsigned refusals = 0;
    text = cutRefusals(std::move(text), refusals);
    const bool web = text.starts_with(serverPrefix);
    run = {id, web ? std::wstring() : toWide(text),
           web ? text.substr(serverPrefix.size()) : std::string(), refusals};
    return true;
}

bool isNotThere(DWORD error) {
    return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND;
}

// Logs what could not be done with a note for the sake of the last error, and keeps that.
bool failed(const char* action, const std::string& instanceId, const std::string& jobId) {
    return logFailed("Failed to %s run {%s} of job {%s} for its storage, error-code = %d, %m.\n",
                     action, instanceId, jobId, GetLastError());
}

}  // namespace

PendingDrops::PendingDrops(std::string jobId) : jobId_(std::move(jobId)) {
    if (jobDirectory(jobId_, home_)) {
        folder_ = home_ + L"\\drops";
    }
}

PendingDrops::PendingDrops(std::string jobId, std::wstring home, std::wstring folder)
    : jobId_(std::move(jobId)), home_(std::move(home)), folder_(std::move(folder)) {}

std::vector<PendingDrops> PendingDrops::all() {
    std::vector<PendingDrops> all;
    for (const std::wstring& directory : jobDirectories()) {
        PendingDrops drops(toUtf8(directory.substr(directory.rfind(L'\\') + 1)));
        if (drops.stay()) {
            drops.home_ = drops.folder_;
        }
        all.push_back(std::move(drops));
    }
    const std::wstring root = handedOnRoot();
    const std::wstring beginning = root + L"\\";
    for (const std::wstring& name : namesIn(root)) {
        if (isJobId(toUtf8(name))) {
            const std::wstring folder = beginning + name;
            all.push_back(PendingDrops(toUtf8(name), folder, folder));
        }
    }
    return all;
}

bool PendingDrops::bindTo(const std::string& server, Bind which) {
    bool bound = true;
    for (const PendingDrops& drops : all()) {
        const std::lock_guard guard(changing);
        for (const std::string& id : instancesIn(drops.folder_)) {
            PendingDrop run;
            if (!read(drops.folder_, id, run)) {
                bound = failed("read the note of", id, drops.jobId_) && bound;
            } else if (run.location.empty() && run.server != server &&
                       (which == Bind::all || run.server.empty())) {
                run.server = server;
                run.refusals = 0;
                bound = drops.write(run) && bound;
            }
        }
    }
    return bound;
}

std::optional<PendingDrop> PendingDrops::note(const PendingDrop& run) const {
    const std::lock_guard guard(changing);
    PendingDrop known;
    if (read(folder_, run.instanceId, known)) {
        return known;
    }
    if (!isNotThere(GetLastError())) {
        failed("read the note of", run.instanceId, jobId_);
        return std::nullopt;
    }
    return write(run) ? std::optional(run) : std::nullopt;
}

bool PendingDrops::write(const PendingDrop& run) const {
    if (run.instanceId.empty() || folder_.empty()) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return failed("note", run.instanceId, jobId_);
    }
    return (createDirectories(folder_) &&
            replaceStore(folder_ + L"\\" + toWide(run.instanceId), textOf(run))) ||
           failed("note", run.instanceId, jobId_);
}

bool PendingDrops::forget(const std::string& instanceId) const {
    if (instanceId.empty() || folder_.empty()) {
        return true;
    }
    const std::lock_guard guard(changing);
    const std::wstring file = folder_ + L"\\" + toWide(instanceId);
    SharingRetry retry;
    do {
        if (DeleteFileW(longPath(file).c_str()) != 0 || isNotThere(GetLastError())) {
            return true;
        }
    } while (retry.again(ERROR_ACCESS_DENIED));
    return failed("delete the note of", instanceId, jobId_);
}

// A record that cannot be read says nothing about the run, and that of a job which is there no more
// has none. A process that died before its note was gone has left a completed run.
PendingDrops::Stand PendingDrops::standOf(const std::string& instanceId) const {
    JobActivity record{};
    if (!JobActivityHandle::read(jobId_.c_str(), record)) {
        return isNotThere(GetLastError()) ? Stand::toDrop : Stand::unfinished;
    }
    if (!equalsIgnoreCase(uuidText(record.instanceId), instanceId)) {
        return Stand::toDrop;
    }
    const auto state = static_cast<JobState>(record.state);
    if (!isRestartable(state)) {
        return Stand::unfinished;
    }
    return state == JobState::completed ? Stand::completed : Stand::toDrop;
}

void PendingDrops::tell(const std::function<bool(const PendingDrop&)>& drop) const {
    // The note first, then the record: a run that begins is on record before it is noted.
    for (const std::string& id : instancesIn(folder_)) {
        const Stand stand = standOf(id);
        PendingDrop run;
        if (stand == Stand::unfinished || (stand == Stand::toDrop && !read(folder_, id, run))) {
            continue;
        }
        if (stand == Stand::toDrop && drop(run)) {
            log(LogLevel::information, "The storage of job {%s} has dropped run {%s} now.\n",
                jobId_, id);
        } else if (stand == Stand::toDrop && !believes(run, GetLastError())) {
            continue;
        }
        forget(id);
    }
    tidyUp();
}

// A folder speaks for itself. For a server anything on the way may have spoken.
bool PendingDrops::believes(const PendingDrop& told, DWORD error) const {
    if (!isHttpStatus(error) || !isRefusal(error)) {
        return isRefusal(error);
    }
    const std::lock_guard guard(changing);
    const std::wstring path = longPath(folder_ + L"\\" + toWide(told.instanceId));
    PendingDrop run;
    WIN32_FILE_ATTRIBUTE_DATA note;
    if (!read(folder_, told.instanceId, run) ||
        GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &note) == 0) {
        return false;
    }
    // When the last one counted, the server was set, or the run began. A clock that was ahead
    // counts as an hour.
    const uint64_t written = toTicks(note.ftLastWriteTime);
    const uint64_t now = utcTimeNow();
    if (written <= now && now - written < hour) {
        return false;
    }
    return ++run.refusals >= endTries || (write(run), false);
}

// What a kill has left of a note half written goes, and the folder when it is empty then.
void PendingDrops::tidyUp() const {
    const std::lock_guard guard(changing);
    for (const std::wstring& name : namesIn(folder_)) {
        if (name.ends_with(L".new")) {
            DeleteFileW(longPath(folder_ + L"\\" + name).c_str());
        }
    }
    if (!any()) {
        DeleteFileW(longPath(folder_ + definitionName).c_str());
    }
    RemoveDirectoryW(longPath(folder_).c_str());
}

bool PendingDrops::handOn(const JobDefinition& definition) const {
    const std::lock_guard guard(changing);
    const std::vector<std::string> ids = instancesIn(folder_);
    const std::wstring root = handedOnRoot();
    if (ids.empty() || root.empty()) {
        return ids.empty();
    }
    const std::wstring to = root + L"\\" + toWide(jobId_);
    // The definition comes first: without it nobody would know whose runs they are.
    if (!createDirectories(to) || !definition.save(to + definitionName)) {
        failed("hand on the definition and", ids.front(), jobId_);
        return keepHere();
    }
    bool kept = true;
    for (const std::string& id : ids) {
        const std::wstring name = L"\\" + toWide(id);
        SharingRetry retry;
        bool moved = false;
        do {
            moved = replaceFile(folder_ + name, to + name) || isNotThere(GetLastError());
        } while (!moved && retry.again(ERROR_ACCESS_DENIED));
        kept = (moved || failed("hand on the note of", id, jobId_)) && kept;
    }
    return kept || keepHere();
}

// Puts the definition beside the notes, for which nothing has to be written: the job is no more,
// and they are told from here. Gives false with the last error of what went wrong before.
bool PendingDrops::keepHere() const {
    const LastErrorGuard keep;
    if (home_ != folder_ && !replaceFile(home_ + definitionName, folder_ + definitionName)) {
        failed("keep the definition beside", instancesIn(folder_).front(), jobId_);
    }
    return false;
}

bool PendingDrops::handOn() const {
    if (!any()) {
        return true;
    }
    const std::unique_ptr<JobDefinition> definition = readDefinition(home_);
    if (!definition) {
        return failed("hand on without a definition", instancesIn(folder_).front(), jobId_);
    }
    if (equalsIgnoreCase(definition->id(), jobId_)) {
        return handOn(*definition);
    }
    return rm_rf(folder_, true);  // copies of another job's, which has them
}

bool PendingDrops::holds(const std::string& instanceId) const {
    return !isMissing(folder_ + L"\\" + toWide(instanceId));
}

bool PendingDrops::stay() const {
    const std::wstring directory = folder_.substr(0, folder_.rfind(L'\\'));
    return any() && fileExists(folder_ + definitionName) && isMissing(directory + definitionName);
}

bool PendingDrops::any() const {
    return !instancesIn(folder_).empty();
}

namespace {

// Notes that could not be handed on stay, with whose they are: they are the only ones there are.
bool removeAllButNotes(const std::wstring& directory) {
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW(longPath(directory + L"\\*").c_str(), &entry));
    const std::wstring beginning = directory + L"\\";
    bool removed = true;
    for (bool more = static_cast<bool>(find); more; more = FindNextFileW(find.get(), &entry) != 0) {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L".." && name != L"drops" && name != L"def") {
            removed = rm_rf(beginning + name, true) && removed;
        }
    }
    return removed;
}

}  // namespace

bool removeJobDirectory(const std::string& id) {
    std::wstring directory;
    SharingRetry retry;
    do {
        if (!jobDirectory(id, directory) ||
            (PendingDrops(id).any() ? removeAllButNotes(directory) : rm_rf(directory, true))) {
            return true;
        }
    } while (retry.again(GetLastError()));
    return logFailed("Failed to delete the directory of job {%s}, error-code = %d, %m.\n", id,
                     GetLastError());
}

}  // namespace dorvo
