#include "base/error_codes.h"

namespace dorvo {

std::string keyErrorText(uint32_t code, const std::string& user) {
    const std::string who = user.empty() ? "the user" : user;
    constexpr const char* import = ": import the recovery file with agent key import FILE";
    switch (code) {
        case errorKeyMissing: return "this machine has no key for " + who + import;
        case errorKeyForeign:
            return "the backups of " + who + " are made with another key than this machine's" +
                   import;
        case errorWrongPassphrase: return "the passphrase does not open the recovery file";
        case errorRecoveryFileDamaged:
            return "the file is no recovery file of this program, or it is damaged";
        case errorRecoveryFileOfOther: return "the recovery file holds another user's key";
        default: return "unknown key error";
    }
}

}  // namespace dorvo
