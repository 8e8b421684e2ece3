#include "endpoints/restore_endpoints.h"

#include <algorithm>
#include <boost/json.hpp>
#include <charconv>

#include "common/digest.h"
#include "common/service_error.h"
#include "common/service_log.h"
#include "endpoints/instance_access.h"
#include "endpoints/json_body.h"
#include "packages/backup_packages.h"

namespace dorvo {

namespace json = boost::json;

namespace {

constexpr size_t md5Digits = 32;
// Of a user. The oldest is forgotten for a new one: restores stand in no list.
constexpr size_t maxRestores = 1000;
constexpr int gone = 410;
constexpr size_t maxHistory = size_t{64} * 1024;
constexpr size_t pageFiles = 1000;
// Of paths: what ordinary ones never come to in a page, and extraordinary ones soon would.
constexpr size_t pageBytes = size_t{1} << 20U;

// How long a count of lost items stands. The catalog's rows can be spoilt at any time.
constexpr std::chrono::minutes lostKept(10);

// Clients keep it where they keep the ids of backups, which are UUIDs.
std::string newRestoreId() {
    std::string id = hexText(randomBytes(16));
    for (const size_t dash : {8U, 13U, 18U, 23U}) {
        id.insert(dash, 1, '-');
    }
    return id;
}

Instance completedBackup(Instances& instances, const Session& session, const json::object& body) {
    Instance instance = ownInstance(instances, session, idMember(body, "jobinstanceid"));
    if (instance.state != InstanceState::completed) {
        refuseState(instance);
    }
    return instance;
}

// Decimal digits that make a number from 1 on.
uint64_t blockIndex(const json::object& body) {
    const std::string_view text = textMember(body, "blockindex", maxIdBytes);
    uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error == std::errc::result_out_of_range && end == text.data() + text.size()) {
        throw ServiceError(404, "the file has no such block");
    }
    if (error != std::errc() || end != text.data() + text.size() || number == 0) {
        throw ServiceError(400, "\"blockindex\" must be a decimal number from 1 on");
    }
    return number;
}

// The range of what lies below the path: its last byte is one more than a backslash.
std::string endOfFolder(std::string_view path) {
    return std::string(path) + static_cast<char>('\\' + 1);
}

}  // namespace

json::object RestoreEndpoints::startRestoreJob(const Session& session, const json::object& body) {
    const std::string_view definition = idMember(body, "jobdefinitionid");
    const Instance backup = completedBackup(instances_, session, body);
    const std::string name = newRestoreId();
    restores_.openRestore(session, name, definition, backup.id, maxRestores);
    return {{"jobinstanceid", name},
            {"totalfiles", backup.totals.files},
            {"totaldirectories", backup.totals.directories},
            {"totalsize", backup.totals.size}};
}

Instance RestoreEndpoints::machinesBackup(const Session& session, const json::object& body) {
    const std::string_view machine = idMember(body, "machine");
    Instance backup = completedBackup(instances_, session, body);
    if (backup.machine != machine) {
        throw ServiceError(404, "the machine has no such backup");
    }
    return backup;
}

// Says so in an answer of its own: waiting brings nothing back. The next backup sends the file.
void RestoreEndpoints::refuseDamaged(const StoredFile& file, uint64_t block) {
    bool isNews = true;
    try {
        isNews = room_.givingWay([&] { return instances_.damagePackage(file); });
    } catch (const DiskFull&) {
        // The next restore of it, or the check when a backup ends, finds it again.
    }
    if (isNews) {
        logEvent("damaged: block " + std::to_string(block) + " of the package at " +
                 std::to_string(file.offset) + " of container " + std::to_string(file.container));
    }
    throw ServiceError(gone, "the bytes of the file are lost or damaged at the server");
}

std::string RestoreEndpoints::readBlock(const StoredFile& file, uint64_t number,
                                        std::span<char> bytes) {
    const auto k = static_cast<int64_t>(number);
    try {
        blocks_.read(file.container, file.offset + (k - 1) * blockBytes, bytes);
    } catch (const LostBytes&) {
        refuseDamaged(file, number);
    }
    std::string digest = md5({bytes.data(), bytes.size()});
    if (instances_.findDigest(file, k).value_or(digest) != digest) {
        refuseDamaged(file, number);
    }
    return digest;
}

StoredFile RestoreEndpoints::storedFile(const Session& session, const json::object& body) {
    const std::string_view folder = textMember(body, "path", maxPathBytes);
    std::string path(folder);
    if (!folder.empty()) {
        path += '\\';
    }
    path += checkPath(textMember(body, "filename", maxPathBytes));
    const Instance backup = machinesBackup(session, body);
    const auto file = instances_.findFile(backup.id, path);
    if (!file) {
        throw ServiceError(404, "the backup has no such file");
    }
    if (!file->sound) {
        throw ServiceError(gone, "what the server knows of the file is damaged");
    }
    return *file;
}

json::object RestoreEndpoints::getFileInfo(const Session& session, const json::object& body) {
    const StoredFile file = storedFile(session, body);
    const auto size = static_cast<uint64_t>(file.size);
    return {{"attri", writeAttributes(file.attributes)},
            {"type", typeText(file.kind)},
            {"totalsizeHigh", size >> 32U},
            {"totalsizeLow", size & 0xFFFFFFFFU},
            {"totalblock", file.blocks},
            {"compress", file.compress}};
}

std::string RestoreEndpoints::downloadFileBlock(const Session& session, const json::object& body) {
    const uint64_t number = blockIndex(body);
    const StoredFile file = storedFile(session, body);
    const auto blocks = static_cast<uint64_t>(file.blocks);
    if (file.kind != FileKind::file || number > blocks + 1) {
        throw ServiceError(404, "the file has no such block");
    }
    const int64_t begin = static_cast<int64_t>(number - 1) * blockBytes;
    const int64_t length = number > blocks ? 0 : std::min(blockBytes, file.size - begin);
    // One buffer from the disk to the socket.
    std::string answer(md5Digits + static_cast<size_t>(length), '\0');
    const std::span<char> bytes = std::span(answer).subspan(md5Digits);
    hexText(bytes.empty() ? md5({}) : readBlock(file, number, bytes))
        .copy(answer.data(), md5Digits);
    return answer;
}

json::object RestoreEndpoints::listFiles(const Session& session, const json::object& body) {
    const std::string_view path = textMember(body, "path", maxPathBytes);
    const std::string_view after = textMember(body, "after", maxPathBytes);
    const auto wanted = static_cast<size_t>(countMember(body, "limit"));
    if (wanted == 0) {
        throw ServiceError(400, "\"limit\" must not be 0");
    }
    const size_t limit = std::min(wanted, pageFiles);
    const Instance backup = machinesBackup(session, body);
    // The least text behind `after`.
    std::string from = after.empty() ? std::string() : std::string(after) + '\0';
    FilePage page;
    if (path.empty()) {
        page = instances_.listFiles(backup.id, from, afterAllPaths, limit, pageBytes);
    } else {
        // The item itself; what lies below it does not follow at once: "a b" is between "a" and
        // "a\c".
        std::vector<ListedFile> first;
        if (after < path) {
            if (const auto item = instances_.findFile(backup.id, path); item && item->sound) {
                first.push_back({std::string(path), item->kind, item->attributes});
            }
        }
        from = std::max(from, std::string(path) + '\\');
        page = instances_.listFiles(backup.id, from, endOfFolder(path), limit - first.size(),
                                    pageBytes);
        page.files.insert(page.files.begin(), first.begin(), first.end());
        page.last = std::max(page.last, std::string(path));
    }
    json::array source;
    source.reserve(page.files.size());
    for (const ListedFile& file : page.files) {
        source.push_back(json::object{{"path", file.path},
                                      {"type", typeText(file.kind)},
                                      {"attri", writeAttributes(file.attributes)}});
    }
    if (page.more) {
        return {{"source", std::move(source)}, {"next", page.last}};
    }
    // A list that has lost items must not pass for a whole one.
    return {{"source", std::move(source)}, {"next", ""}, {"missing", lostOf(backup)}};
}

int64_t RestoreEndpoints::lostOf(const Instance& backup) {
    const auto now = std::chrono::steady_clock::now();
    {
        const std::lock_guard lock(mutex_);
        std::erase_if(lost_,
                      [now](const auto& item) { return item.second.since + lostKept < now; });
        if (const auto known = lost_.find(backup.id); known != lost_.end()) {
            return known->second.items;
        }
    }
    const int64_t items = countLost(instances_, backup);
    const std::lock_guard lock(mutex_);
    lost_[backup.id] = {items, now};
    return items;
}

json::object RestoreEndpoints::restoreJobHistory(const Session& session, const json::object& body) {
    const auto restore = restores_.findRestore(idMember(body, "instanceId"));
    if (!restore || restore->userId != session.userId) {
        throw ServiceError(404, "no such restore");
    }
    const std::string history = json::serialize(body);
    if (history.size() > maxHistory) {
        throw ServiceError(413, "the history is too large");
    }
    restores_.putHistory(restore->id, history);
    return {};
}

}  // namespace dorvo
