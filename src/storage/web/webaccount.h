// What the web storage service holds of a user: the runs.
//
// Talks to the server that the options name, and blocks until it has answered or the connection has
// failed. False leaves the thread's last error: ERROR_INVALID_PARAMETER when no server is set, a
// marked HTTP status, a socket error, or ERROR_INVALID_DATA for an answer that is none.
#pragma once

#include <string>
#include <vector>

#include "base/api.h"
#include "storage/storedinstance.h"

namespace dorvo {

class DORVO_JOB_API WebAccount {
public:
    // The runs of one machine (empty: all) and one job (empty: all), as the service orders them,
    // asked for page by page. A refused session is renewed where the stores know its user.
    static bool listInstances(const std::string& cookie, const std::string& machine,
                              const std::string& jobDefinitionId,
                              std::vector<StoredInstance>& instances);
};

}  // namespace dorvo
