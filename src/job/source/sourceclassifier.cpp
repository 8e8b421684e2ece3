#include "job/source/sourceclassifier.h"

#include "base/error_text.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr DWORD bufferSize = 260;

// The mount point of a path, in the form in which the path is given.
bool mountPoint(const std::wstring& path, std::wstring& mount) {
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

}  // namespace

void SourceClassifier::operator()(const std::vector<std::wstring>& sources,
                                  VolumeMap& volumes) const {
    volumes.clear();
    for (const std::wstring& source : sources) {
        std::wstring mount;
        if (!mountPoint(source, mount)) {
            LastErrorGuard keep;
            log(LogLevel::error, "Failed to get volume path name from '%s', err=%d, %s\n",
                toUtf8(source).c_str(), keep.error(), errorText(keep.error()).c_str());
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

}  // namespace dorvo
