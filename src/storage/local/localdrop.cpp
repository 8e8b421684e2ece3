#include "storage/local/localdrop.h"

#include "base/files.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"
#include "settings/storefile.h"
#include "storage/local/localerror.h"
#include "storage/local/localinstancewriter.h"

namespace dorvo {

bool dropInstance(const LocalPlace& place, const std::string& id) {
    const std::wstring folder = place.instance(id);
    LocalInstanceDocument document;
    if (!isMissing(folder) && !LocalInstanceWriter::open(place, id, document)) {
        return false;
    }
    // Without its document it is no instance any more, whatever of it stays behind.
    const std::wstring path = place.document(id);
    return (DeleteFileW(longPath(path).c_str()) != 0 || isNotFound(GetLastError())) &&
           rm_rf(folder, true);
}

void dropAwaited(const LocalPlace& place, const std::string& id) {
    if (DeleteFileW(longPath(place.awaited(id)).c_str()) == 0 && !isNotFound(GetLastError())) {
        logFailure("delete the list of awaited files in", toUtf8(place.instance(id)));
    }
}

void sweepPlace(const LocalPlace& place, const LocalPlace::Newest& newest) {
    if (!newest.completed.id.empty()) {
        dropAwaited(place, newest.completed.id);
    }
    for (const std::string& id : newest.running) {
        if (dropInstance(place, id)) {
            log(LogLevel::information, "Deleted what a run had left in {%s}.\n",
                toUtf8(place.instance(id)));
        } else {
            logFailure("delete what a run has left in", toUtf8(place.instance(id)));
        }
    }
}

}  // namespace dorvo
