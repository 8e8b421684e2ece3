#include "source/jobvolume.h"

#include <algorithm>
#include <ostream>

#include "base/error_text.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/text.h"
#include "base/uuid.h"
#include "base/write_handle_streambuf.h"
#include "json_spirit/json_spirit.h"
#include "source/volumefile.h"

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

}  // namespace

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

}  // namespace dorvo
