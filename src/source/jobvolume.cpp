#include "source/jobvolume.h"

#include <windows.h>

#include <algorithm>
#include <charconv>
#include <istream>
#include <optional>
#include <ostream>

#include "base/handle.h"
#include "base/handle_streambuf.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "json_spirit/json_spirit.h"
#include "json_spirit/member.h"

namespace dorvo {
namespace {

std::string withSlashes(const std::wstring& path) {
    std::string text = toUtf8(path);
    std::replace(text.begin(), text.end(), '\\', '/');
    return text;
}

json_spirit::Ordered_value toJson(const JobVolume& volume) {
    json_spirit::Ordered_array sources;
    for (const std::wstring& source : volume.sources) {
        sources.emplace_back(withSlashes(source));
    }
    return json_spirit::Ordered_object{
        {"path", withSlashes(volume.path)},
        {"state", volume.state},
        {"snapshotSetId", uuidText(volume.snapshotSetId)},
        {"snapshotId", uuidText(volume.snapshotId)},
        {"shadowPath", toUtf8(volume.shadowPath)},
        {"creationTimestamp", volume.creationTimestamp},
        {"source", std::move(sources)},
    };
}

std::wstring withBackslashes(const std::string& text) {
    std::wstring path = toWide(text);
    std::replace(path.begin(), path.end(), L'/', L'\\');
    return path;
}

GUID uuid(const std::string& text) {
    GUID id{};
    if (!uuidFromText(text, id)) {
        throw std::runtime_error("not a UUID: " + text);
    }
    return id;
}

JobVolume fromJson(const json_spirit::Value& value) {
    const json_spirit::Object& object = value.get_obj();
    JobVolume volume;
    volume.path = withBackslashes(member(object, "path").get_str());
    volume.state = member(object, "state").get_int();
    volume.snapshotSetId = uuid(member(object, "snapshotSetId").get_str());
    volume.snapshotId = uuid(member(object, "snapshotId").get_str());
    volume.shadowPath = toWide(member(object, "shadowPath").get_str());
    volume.creationTimestamp = member(object, "creationTimestamp").get_int64();
    for (const json_spirit::Value& source : member(object, "source").get_array()) {
        volume.sources.push_back(withBackslashes(source.get_str()));
    }
    return volume;
}

// The index that a file's name stands for, as save() forms it.
std::optional<int32_t> indexOf(const std::wstring& name) {
    const std::string text = toUtf8(name);
    int32_t index = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
    if (error != std::errc() || end != text.data() + text.size() || std::to_string(index) != text) {
        return std::nullopt;
    }
    return index;
}

void logMalformed(const char* jobId, int32_t index, const std::string& reason) {
    log(LogLevel::error, "Failed to load job {%s} volume file %d, %s.\n", jobId, index, reason);
}

void loadVolume(const char* jobId, const std::wstring& path, int32_t index, VolumeMap& volumes) {
    try {
        read_handle_streambuf file(path);
        std::istream stream(&file);
        json_spirit::Value value;
        json_spirit::read_or_throw(stream, value);
        auto volume = std::make_shared<JobVolume>(fromJson(value));
        volume->index = index;
        volumes[volume->path] = std::move(volume);
    } catch (const json_spirit::Error_position& error) {
        logMalformed(jobId, index,
                     "line " + std::to_string(error.line_) + ", column " +
                         std::to_string(error.column_) + ", " + error.reason_);
    } catch (const std::exception& error) {
        logMalformed(jobId, index, error.what());
    }
}

constexpr DWORD bufferSize = 260;

bool isFolderLink(const std::wstring& path) {
    constexpr DWORD folderLink = FILE_ATTRIBUTE_DIRECTORY | FILE_ATTRIBUTE_REPARSE_POINT;
    const DWORD attributes = GetFileAttributesW(longPath(path).c_str());
    return attributes != INVALID_FILE_ATTRIBUTES && (attributes & folderLink) == folderLink;
}

bool liesOn(std::wstring path, const std::wstring& mount) {
    path += L'\\';
    return path.size() >= mount.size() &&
           CompareStringOrdinal(path.data(), static_cast<int>(mount.size()), mount.data(),
                                static_cast<int>(mount.size()), TRUE) == CSTR_EQUAL;
}

// The platform's answer, in the form in which the path is given.
bool askMountPoint(const std::wstring& path, std::wstring& mount) {
    wchar_t buffer[bufferSize];
    const bool prefixed = path.size() >= bufferSize;
    const std::wstring asked = prefixed ? longPath(path) : path;
    if (GetVolumePathNameW(asked.c_str(), buffer, bufferSize) == 0) {
        return false;
    }
    mount = buffer;
    // The long form is for the call; what it adds to the path is taken off the answer.
    if (prefixed && asked.size() > path.size() && mount.starts_with(L"\\\\?\\")) {
        mount = mount.starts_with(L"\\\\?\\UNC\\") ? L"\\" + mount.substr(7) : mount.substr(4);
    }
    return true;
}

// The mount point that the path begins with. A volume mounted at the path itself is its own mount
// point, which the platform is sure to see where the path ends in a backslash.
bool mountPoint(const std::wstring& path, std::wstring& mount) {
    if (!path.ends_with(L'\\') && isFolderLink(path) && askMountPoint(path + L'\\', mount) &&
        liesOn(path, mount)) {
        return true;
    }
    if (!askMountPoint(path, mount)) {
        return false;
    }
    // What a link on the way leads to lies on another volume; the path itself lies on its drive's.
    constexpr size_t driveRoot = 3;
    if (!liesOn(path, mount) && path.size() >= driveRoot && path[1] == L':') {
        mount = path.substr(0, driveRoot);
    }
    return true;
}

}  // namespace

bool volumeDirectory(const char* jobId, std::wstring& path) {
    if (jobId == nullptr || *jobId == '\0') {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (!jobDirectory(jobId, path)) {
        return false;
    }
    path += L"\\act\\vol";
    return true;
}

bool JobVolume::save(const char* jobId) const {
    std::wstring directory;
    if (!volumeDirectory(jobId, directory)) {
        return false;
    }
    createDirectories(directory);
    write_handle_streambuf file(directory + L"\\" + std::to_wstring(index));
    if (!file.is_open()) {
        return logFailed(file.error(), "Failed to open job {%s} volume file %d for writing.\n",
                         jobId, index);
    }
    std::ostream stream(&file);
    json_spirit::write_formatted(toJson(*this), stream);
    if (!file.close()) {
        return logFailed("Failed to write job {%s} volume file %d, err=%d, %s.\n", jobId, index,
                         GetLastError(), errorText(GetLastError()));
    }
    return true;
}

void SourceClassifier::operator()(const std::vector<std::wstring>& sources,
                                  VolumeMap& volumes) const {
    volumes.clear();
    for (const std::wstring& source : sources) {
        std::wstring mount;
        if (!mountPoint(source, mount)) {
            LastErrorGuard keep;
            log(LogLevel::error, "Failed to get volume path name from '%s', err=%d, %s\n",
                toUtf8(source), keep.error(), errorText(keep.error()));
            continue;
        }
        std::shared_ptr<JobVolume>& volume = volumes[mount];
        if (!volume) {
            volume = std::make_shared<JobVolume>();
            volume->index = static_cast<int32_t>(volumes.size());
            volume->path = mount;
        }
        volume->sources.push_back(source);
    }
}

void loadVolumes(const char* jobId, VolumeMap& volumes) {
    volumes.clear();
    std::wstring directory;
    if (!volumeDirectory(jobId, directory)) {
        return;
    }
    WIN32_FIND_DATAW entry;
    FindHandle search(FindFirstFileW(longPath(directory + L"\\*").c_str(), &entry));
    if (!search) {
        return;
    }
    do {
        const std::optional<int32_t> index = indexOf(entry.cFileName);
        if (index && (entry.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) == 0) {
            loadVolume(jobId, directory + L"\\" + entry.cFileName, *index, volumes);
        }
    } while (FindNextFileW(search.get(), &entry) != 0);
}

void clearVolumes(VolumeMap& volumes, const char* jobId, int endCode) {
    if (endCode == 1 || endCode == 7 || endCode == 9 || endCode == 10) {
        for (const auto& [path, volume] : volumes) {
            removeVolumeFile(*volume, jobId);
        }
    }
    volumes.clear();
}

bool removeVolumeFile(const JobVolume& volume, const char* jobId) {
    std::wstring directory;
    return volumeDirectory(jobId, directory) &&
           DeleteFileW(longPath(directory + L"\\" + std::to_wstring(volume.index)).c_str()) != 0;
}

std::wstring toShadowPath(std::wstring_view source, std::wstring_view volumePath,
                          std::wstring_view shadowPath) {
    if (shadowPath.empty() || volumePath.empty()) {
        return std::wstring(source);
    }
    std::wstring_view rest = source.substr(std::min(volumePath.size(), source.size()));
    std::wstring result;
    result.reserve(std::max<size_t>(MAX_PATH, shadowPath.size() + rest.size() + 1));
    result = shadowPath;
    if (rest.empty()) {
        return result;
    }
    if (result.back() != L'\\') {
        result.push_back(L'\\');
    }
    if (rest.front() == L'\\') {
        rest.remove_prefix(1);
    }
    if (!rest.empty() && rest.back() == L'\\') {
        rest.remove_suffix(1);
    }
    return result.append(rest);
}

std::wstring toLivePath(std::wstring_view entry, std::wstring_view walked,
                        std::wstring_view source) {
    std::wstring_view rest = entry.substr(std::min(walked.size(), entry.size()));
    std::wstring result(source);
    if (rest.empty()) {
        return result;
    }
    if (rest.front() == L'\\') {
        rest.remove_prefix(1);
    }
    if (!result.empty() && result.back() != L'\\' && result.back() != L'/') {
        result.push_back(L'\\');
    }
    return result.append(rest);
}

bool isSnapshotThere(const JobVolume& volume) {
    const LastErrorGuard keep;
    // A root that may not be looked at is one all the same.
    if (volume.shadowPath.empty() ||
        GetFileAttributesW(volume.shadowPath.c_str()) != INVALID_FILE_ATTRIBUTES ||
        GetLastError() == ERROR_ACCESS_DENIED) {
        return true;
    }
    return logFailed("The snapshot of volume {%s} is gone, error-code = %d, %m.\n",
                     toUtf8(volume.path), GetLastError());
}

}  // namespace dorvo
