#include "text/keyfailure.h"

#include <windows.h>

#include "base/key_error.h"
#include "base/text.h"
#include "settings/keymanager.h"
#include "text/failuretext.h"

namespace dorvo::agent {

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
