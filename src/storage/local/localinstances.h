// The backups that lie in a folder, of all machines and jobs.
#pragma once

#include <string>
#include <vector>

#include "base/api.h"
#include "storage/storedinstance.h"

namespace dorvo {

// The state of an instance whose document cannot be read.
constexpr const char* damagedInstance = "damaged";

class DORVO_JOB_API LocalInstances {
public:
    // The runs of one machine (empty: all) and one job (empty: all), the oldest of a job first, in
    // the shape in which the web service lists them: the state is "running" or "completed". Last
    // come those whose document cannot be read, which is logged: in state "damaged", with the time
    // when the document was written for their end. False is logged: 10070 when the folder is not
    // there, or is empty where a job of this machine remembers backups, because its disk is not
    // mounted; 87 for a machine or job that is no name for a folder.
    static bool list(const std::wstring& location, const std::string& machine,
                     const std::string& jobDefinitionId, std::vector<StoredInstance>& instances);
};

}  // namespace dorvo
