#include "source/volumemap.h"

#include <algorithm>
#include <charconv>
#include <istream>
#include <optional>

#include "base/handle.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/read_handle_streambuf.h"
#include "base/text.h"
#include "base/uuid.h"
#include "json_spirit/json_spirit.h"
#include "json_spirit/member.h"
#include "source/volumefile.h"

namespace dorvo {
namespace {

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

}  // namespace

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

}  // namespace dorvo
