#include "storage/userkey.h"

#include <windows.h>

#include "base/error_codes.h"
#include "settings/keymanager.h"

namespace dorvo {
namespace {

KeyManagerImpl& keys() {
    return *ATL::CComSingleton<KeyManagerImpl, ATL::CComAutoCriticalSection>::instance();
}

}  // namespace

bool ownKey(const std::string& user, UserKey& key) {
    return keys().findKey(user.c_str(), key.key.data(), key.key.size(), key.iv.data(),
                          key.iv.size());
}

bool heldKey(const std::string& user, const std::string& md5, UserKey& key) {
    if (keys().findHeldKey(user.c_str(), md5.c_str(), key.key.data(), key.key.size(), key.iv.data(),
                           key.iv.size())) {
        return true;
    }
    if (GetLastError() == ERROR_NOT_FOUND) {
        std::string own;
        if (keys().keyChecksum(user.c_str(), own)) {
            SetLastError(errorKeyForeign);
        } else if (GetLastError() == ERROR_NOT_FOUND) {
            SetLastError(errorKeyMissing);
        }
    }
    return false;
}

}  // namespace dorvo
