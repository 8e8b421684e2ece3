#include "storage/local/localinstances.h"

#include <windows.h>

#include <algorithm>
#include <iterator>

#include "base/last_error.h"
#include "base/local_time.h"
#include "base/paths.h"
#include "base/text.h"
#include "storage/local/localerror.h"
#include "storage/local/localplace.h"
#include "storage/wire_time.h"

namespace dorvo {
namespace {

StoredInstance listed(const LocalInstanceDocument& document, const std::string& machine,
                      const std::string& job) {
    StoredInstance instance;
    instance.machine = machine;
    instance.jobDefinitionId = job;
    instance.jobInstanceId = document.id;
    instance.startTime = document.startTime;
    instance.endTime = document.endTime;
    instance.state = localStateText(document.state);
    instance.totalFiles = document.files;
    instance.totalDirectories = document.directories;
    instance.totalSize = document.size;
    instance.errors = document.errors;
    instance.user = document.user;
    return instance;
}

// Of such a one nothing is known but when its document was written last.
StoredInstance unreadable(const LocalPlace& place, const std::string& machine,
                          const std::string& job, const std::string& id) {
    StoredInstance instance;
    instance.machine = machine;
    instance.jobDefinitionId = job;
    instance.jobInstanceId = id;
    instance.state = damagedInstance;
    WIN32_FILE_ATTRIBUTE_DATA data{};
    if (GetFileAttributesExW(longPath(place.document(id)).c_str(), GetFileExInfoStandard, &data) !=
        0) {
        instance.endTime = wire_time(toTicks(data.ftLastWriteTime));
    }
    return instance;
}

// The names of the folders in a folder, if it is there, that can be such names; or only the one
// that is asked for.
bool names(const std::wstring& folder, const std::string& only, std::vector<std::string>& found) {
    if (!only.empty()) {
        found.push_back(only);
        return true;
    }
    const bool read = eachFolder(folder, [&](const std::wstring& name) {
        if (std::string text = toUtf8(name); isJobId(text)) {
            found.push_back(std::move(text));
        }
    });
    const bool listed = read || isNotFound(GetLastError());
    const LastErrorGuard keep;
    std::sort(found.begin(), found.end());
    return listed;
}

bool listJob(const LocalPlace& place, const std::string& machine, const std::string& job,
             std::vector<StoredInstance>& instances) {
    std::vector<LocalInstanceDocument> documents;
    std::vector<StoredInstance> damaged;
    if (!place.each([&](const LocalInstanceDocument& document) { documents.push_back(document); },
                    [&](const std::string& id) {
                        damaged.push_back(unreadable(place, machine, job, id));
                    })) {
        return false;
    }
    std::sort(documents.begin(), documents.end(),
              [](const auto& a, const auto& b) { return a.sequence < b.sequence; });
    for (const LocalInstanceDocument& document : documents) {
        instances.push_back(listed(document, machine, job));
    }
    std::move(damaged.begin(), damaged.end(), std::back_inserter(instances));
    return true;
}

bool listAll(const std::wstring& location, const std::string& machine, const std::string& job,
             std::vector<StoredInstance>& instances) {
    std::vector<std::string> machines;
    if (!names(location, machine, machines)) {
        return false;
    }
    for (const std::string& name : machines) {
        std::vector<std::string> jobs;
        if (!names(location + L"\\" + toWide(name), job, jobs)) {
            return false;
        }
        for (const std::string& id : jobs) {
            if (!listJob(LocalPlace(location, name, id), name, id, instances)) {
                return false;
            }
        }
    }
    return true;
}

}  // namespace

bool LocalInstances::list(const std::wstring& location, const std::string& machine,
                          const std::string& jobDefinitionId,
                          std::vector<StoredInstance>& instances) {
    instances.clear();
    // Any names will do to look at the location itself.
    const LocalPlace place(location, machine.empty() ? "any" : machine,
                           jobDefinitionId.empty() ? "any" : jobDefinitionId);
    if (!place.check()) {
        return false;
    }
    if (listAll(place.location(), machine, jobDefinitionId, instances)) {
        return !instances.empty() || !place.isAway() || failedAway(place.location());
    }
    instances.clear();
    failedIn(place.location());
    return logFailure("list the backups in", toUtf8(place.location()));
}

}  // namespace dorvo
