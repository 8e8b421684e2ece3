#include "text/failuretext.h"

#include <windows.h>

#include "base/error_codes.h"
#include "base/last_error.h"
#include "base/text.h"
#include "httpmsg/http_names.h"
#include "job/transferfailure.h"
#include "settings/keymanager.h"
#include "settings/serverbinding.h"
#include "storage/local/localerror.h"
#include "text/format.h"
#include "text/singletons.h"

namespace dorvo::agent {

std::string serverText() {
    std::string host;
    unsigned short port = 0;
    options().getServerInfo(host, port);
    return host.empty() ? host : host + ":" + std::to_string(port);
}

std::string failureText(uint32_t code) {
    if (isHttpStatus(code)) {
        const int status = static_cast<int>(withoutHttpMark(code));
        return "HTTP status " + std::to_string(status) + ", " + http_status_string(status);
    }
    if (isKeyError(code)) {
        return keyErrorText(code);
    }
    if (code == errorLocationGone) {
        return "The folder of the backups is not there, or empty without its disk, or the disk is "
               "full (error " +
               std::to_string(code) + ")";
    }
    if (code == ERROR_CANNOT_MAKE) {
        return "A folder stands where the file should go (error " + std::to_string(code) + ")";
    }
    std::string text = errorText(code);
    while (!text.empty() && text.back() == '.') {
        text.pop_back();
    }
    return text + " (error " + std::to_string(code) + ")";
}

std::string runFailure(uint32_t code, const std::string& user, const std::string& said) {
    constexpr uint32_t unavailable = withHttpMark(503);
    const std::string text = failureText(code);
    if (isDiskFull(code)) {
        return text + ": make room on the disk of the data directory";
    }
    switch (code) {
        case ERROR_NOT_FOUND: return "the backup is not where it is looked for (" + text + ")";
        case errorUnauthorized:
        case errorNotAcceptable:
            return "the server refused the session of '" + user + "' (" + text +
                   "): run 'agent login " + user + "'";
        case unavailable:
            if (said.empty()) {
                return "the server is busy, its disk is full, or its storage is down (" + text +
                       ")";
            }
            break;
        case errorRefused:
            return "nobody answers at " + serverText() + " (error " + std::to_string(code) +
                   "): see that the server runs, or run 'agent server set HOST:PORT'";
        case errorHostNotFound:
        case errorNameTryAgain:
            return "no machine is found by the name in " + serverText() + " (error " +
                   std::to_string(code) +
                   "): see to the network, or run 'agent server set HOST:PORT'";
        case errorOtherServer:
            return "it has begun at another server than " + serverText() +
                   ", which has nothing of it: the next run begins there";
        default: break;
    }
    return isKeyError(code) ? keyErrorText(code, user)
           : said.empty()   ? text
                            : "the server says: " + printable(said) + " (" + text + ")";
}

std::string requestFailure(uint32_t code, const std::string& user) {
    constexpr uint32_t tooManyTries = withHttpMark(429);
    switch (code) {
        case errorUnauthorized:
        case errorNotAcceptable:
            return "The server refused the session of '" + user + "': run 'agent login " + user +
                   "'";
        case ERROR_INVALID_DATA:
            return "The server " + serverText() + " gives no answer that a storage server would";
        case tooManyTries: return "The server has seen too many failed logins: try again later";
        default: break;
    }
    if (isHttpStatus(code)) {
        return "The server " + serverText() + " refused the request: " + failureText(code);
    }
    return "The server " + serverText() + " cannot be reached: " + failureText(code) +
           "; see that it runs, or run 'agent server set HOST:PORT'";
}

std::string keyFailure(const std::wstring& file, const std::string& user, uint32_t code) {
    const std::string name = "'" + toUtf8(file) + "'";
    switch (code) {
        case ERROR_NOT_FOUND:
            return "'" + user +
                   "' has no key on this machine: the first backup makes one, 'agent key import "
                   "FILE' brings one";
        case ERROR_DECRYPTION_FAILED:
            return "The keys of this machine cannot be read: the file 'keys' of the data directory "
                   "is damaged, or the machine key in the registry is not the one that it was "
                   "written with; bring back the one or the other, or move the file away and "
                   "import a recovery file";
        case ERROR_FILE_EXISTS:
            return name + " is there already and was left as it is: name another file";
        case ERROR_TOO_MANY_SECRETS:
            return name + ": '" + user + "' would have more keys on this machine than " +
                   std::to_string(userKeyLimit) + "; none was taken";
        default: break;
    }
    return name + ": " + (isKeyError(code) ? keyErrorText(code, user) : failureText(code));
}

}  // namespace dorvo::agent
