#include "storage/web/web_keys.h"

#include "base/error_codes.h"
#include "base/interrupter.h"
#include "base/log.h"
#include "settings/keymanager.h"
#include "storage/web/web_bodies.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"
#include "storage/web/web_session.h"

namespace dorvo {
namespace {

KeyManagerImpl& keys() {
    return *ATL::CComSingleton<KeyManagerImpl, ATL::CComAutoCriticalSection>::instance();
}

bool fail(const std::string& user, uint32_t error) {
    if (isKeyError(error)) {
        log(LogLevel::error, "Failed to agree on the key of user {%s}, error-code = %d, %s.\n",
            user, error, keyErrorText(error, user));
        SetLastError(error);
    } else {
        SetLastError(error);
        log(LogLevel::error, "Failed to agree on the key of user {%s}, error-code = %d, %m.\n",
            user, error);
    }
    return false;
}

// Empty when the user has none. False when that is not to be found out.
bool ownChecksum(const std::string& user, std::string& md5) {
    md5.clear();
    return keys().keyChecksum(user.c_str(), md5) || GetLastError() == ERROR_NOT_FOUND;
}

// What the service holds: an MD5, or nothing.
bool askService(Web_Session& session, std::string& md5) {
    Command_To_Server<Get_MD5_of_Keys_Reqeust, Response_T<json_spirit::Value>> command(
        "Get MD5 of Keys");
    if (!judge(session.run(command), command, "ask for the key of user", session.user())) {
        return false;
    }
    return readKeyMd5(command.response().body(), md5) || fail(session.user(), ERROR_INVALID_DATA);
}

bool tellService(Web_Session& session, const std::string& md5) {
    Command_To_Server<Export_MD5_of_Keys_Reqeust, Response_T<std::string>> command(
        "Export MD5 of Keys", Export_MD5_of_Keys_Reqeust(md5));
    return judge(session.run(command), command, "export the key of user", session.user()) ||
           (GetLastError() == withHttpMark(409) && fail(session.user(), errorKeyForeign));
}

}  // namespace

bool agreeOnKey(const std::string& user, KeyUse use, HANDLE stop, UserKey& key) {
    const FunctionTrace trace("agreeOnKey", "web_keys.cpp");
    std::string own;
    if (!ownChecksum(user, own)) {
        return fail(user, GetLastError());
    }
    if (own.empty() && use == KeyUse::restore) {
        return fail(user, errorKeyMissing);
    }
    const interrupter stopSignal(stop);
    Web_Session session(user);
    session.set_interrupter(&stopSignal);
    if (!aimAtServerOfOptions(session.invoker())) {
        return fail(user, GetLastError());
    }
    std::string held;
    if (!askService(session, held)) {
        return false;
    }
    if (!held.empty()) {
        return heldKey(user, held, key) || fail(user, GetLastError());
    }
    if (own.empty() && !(ownKey(user, key) && ownChecksum(user, own))) {
        return fail(user, GetLastError());
    }
    return tellService(session, own) && (heldKey(user, own, key) || fail(user, GetLastError()));
}

}  // namespace dorvo
