// A user's account at the web storage service: logging in, and what the service holds of it.
//
// Talks to the server that the options name. Every operation blocks until the server has answered
// or the connection has failed. False leaves the thread's last error: ERROR_INVALID_PARAMETER when
// no server is set, a marked HTTP status, a socket error, or ERROR_INVALID_DATA for an answer that
// is none. `server` is whose the secrets are, a serverName(): where the options name another by
// now, nothing is sent and the last error is ERROR_OPERATION_ABORTED. One thread at a time. Neither
// passwords nor cookies are logged. `stop`, borrowed, breaks the wait for an answer off with
// ERROR_CANCELLED; null never does.
#pragma once

#include <string>
#include <vector>

#include "base/api.h"
#include "base/interrupter.h"
#include "storage/storedinstance.h"

namespace dorvo {

class DORVO_JOB_API WebAccount {
public:
    // Gives the text of the new session's cookie, as it is to be sent back. 401: the user or the
    // password is wrong; 429: too many failed tries.
    static bool login(const std::string& server, const std::string& user,
                      const std::string& password, const std::string& machine, std::string& cookie,
                      const interrupter* stop = nullptr);

    // Ends the session at the service. 401: there is none of that cookie.
    static bool logout(const std::string& server, const std::string& user,
                       const std::string& cookie, const interrupter* stop = nullptr);

    // The runs of one machine (empty: all) and one job (empty: all), as the service orders them,
    // asked for page by page. A refused session is renewed where the stores know its user.
    static bool listInstances(const std::string& cookie, const std::string& machine,
                              const std::string& jobDefinitionId,
                              std::vector<StoredInstance>& instances);
};

}  // namespace dorvo
