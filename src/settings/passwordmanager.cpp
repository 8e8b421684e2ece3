#include "settings/passwordmanager.h"

#include <windows.h>

#include <mutex>

#include "base/text.h"
#include "settings/encodedstore.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

constexpr const wchar_t* fileName = L"\\passwords";
constexpr EncodedStoreTexts texts = {
    LogLevel::error,
    "Failed to decode the password storage file.\n",
    "Failed to parse password storage, Line %d, column %d, %s.\n",
    "Password storage is not JSON object.\n",
    "Failed to encode the password storage file.\n",
};

}  // namespace

PasswordManagerImpl::PasswordManagerImpl() {
    init();
}

PasswordManagerImpl::~PasswordManagerImpl() = default;

bool PasswordManagerImpl::init() {
    const FunctionTrace trace("PasswordManagerImpl::init", "passwordmanager.cpp");
    return loadEncodedStore(storePath(fileName), texts, passwords_);
}

bool PasswordManagerImpl::save() const {
    const FunctionTrace trace("PasswordManagerImpl::save", "passwordmanager.cpp");
    return saveEncodedStore(storePath(fileName), texts, passwords_);
}

bool PasswordManagerImpl::savePassword(const char* user, const char* password) {
    return savePassword(user, password, serverOfOptions());
}

bool PasswordManagerImpl::savePassword(const char* user, const char* password,
                                       const std::string& server) {
    if (isEmpty(user) || isEmpty(password)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    passwords_[user] = password;
    bindToServer(passwords_, user, server);
    return save();
}

bool PasswordManagerImpl::removePassword(const char* user) {
    if (isEmpty(user)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    passwords_.erase(user);
    bindToServer(passwords_, user, {});
    return save();
}

bool PasswordManagerImpl::bindTo(const std::string& server, Bind which) {
    const std::lock_guard guard(lock_);
    return !bindToServer(passwords_, which, server) || save();
}

bool PasswordManagerImpl::isPasswordValid(const char* user, const char* password) const {
    std::string stored;
    return !isEmpty(password) && findPassword(user, stored, {}) && stored == password;
}

bool PasswordManagerImpl::hasPassword(const char* user) const {
    std::string stored;
    const bool found = findPassword(user, stored, {});
    SecureZeroMemory(stored.data(), stored.size());
    return found;
}

bool PasswordManagerImpl::findPassword(const char* user, std::string& password) const {
    return findPassword(user, password, serverOfOptions());
}

bool PasswordManagerImpl::findPassword(const char* user, std::string& password,
                                       const std::string& server) const {
    if (isEmpty(user)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    const auto held = passwords_.find(user);
    if (held == passwords_.end() || held->second.type() != json_spirit::str_type ||
        !belongsTo(passwords_, user, server)) {
        return false;
    }
    password = held->second.get_str();
    return true;
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::PasswordManagerImpl, ATL::CComAutoCriticalSection>;
