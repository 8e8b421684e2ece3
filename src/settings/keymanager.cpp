#include "settings/keymanager.h"

#include <algorithm>
#include <exception>
#include <mutex>

#include "base/error_codes.h"
#include "base/files.h"
#include "base/last_error.h"
#include "base/log.h"
#include "base/md5.h"
#include "base/paths.h"
#include "base/text.h"
#include "base/uuid.h"
#include "settings/encodedstore.h"
#include "settings/encodedtext.h"
#include "settings/globalkey.h"
#include "settings/recoveryfile.h"
#include "settings/storefile.h"
#include "settings/wipe.h"

namespace dorvo {
namespace {

constexpr const wchar_t* fileName = L"\\keys";
constexpr EncodedStoreTexts texts = {
    LogLevel::error,
    "Failed to decode the key storage file.",
    "Failed to parse key storage, Line %d, column %d, %s.\n",
    "Key storage is not JSON object",
    "Failed to encode the key storage file.\n",
};

constexpr size_t userKeySize = aesKeySize + aesIvSize;

bool sizesAreRight(size_t keyLen, size_t ivLen) {
    if (keyLen == aesKeySize && ivLen == aesIvSize) {
        return true;
    }
    return logFailed(ERROR_INVALID_PARAMETER, "Incorrect key or iv size.\n");
}

bool argumentsAreRight(const char* user, size_t keyLen, size_t ivLen) {
    if (isEmpty(user)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    return sizesAreRight(keyLen, ivLen);
}

std::string checksumOf(const std::string& bytes) {
    return Md5::of(std::as_bytes(std::span(bytes)));
}

// No name of a user has a line feed.
std::string beginningOfImported(const std::string& user) {
    return user + '\n';
}

void split(const std::string& bytes, unsigned char* key, unsigned char* iv) {
    std::copy_n(bytes.begin(), aesKeySize, key);
    std::copy_n(bytes.begin() + aesKeySize, aesIvSize, iv);
}

static_assert(recoveryKeySize == aesKeySize + aesIvSize);
static_assert(recoveryKeyLimit == userKeyLimit);

bool fail(const char* action, const wchar_t* file, DWORD error) {
    return logFailed(error, "Failed to %s the recovery file \"%s\", error-code = %d, %s.\n", action,
                     toUtf8(file == nullptr ? L"" : file), error, errorText(error));
}

// A name of its own in the folder of `file`; empty when there is none to be had.
std::wstring siblingOf(const std::wstring& file) {
    GUID id{};
    if (createUuid(id) != 0) {
        return {};
    }
    return file.substr(0, file.find_last_of(L"\\/:") + 1) + toWide(uuidText(id)) + L".new";
}

// The text is read back before the file gets its name: it may be all that is left one day.
bool isWritten(const std::wstring& path, const std::string& text) {
    std::string readBack;
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    if (!file || !readStore(std::move(file), readBack)) {
        return false;
    }
    SetLastError(ERROR_WRITE_FAULT);
    return readBack == text;
}

bool writeWhole(const std::wstring& file, const std::string& text) {
    const std::wstring fresh = siblingOf(file);
    FileHandle handle = createPrivateFile(fresh);
    if (!handle) {
        return false;
    }
    if (writeStore(std::move(handle), text) && flushFile(fresh) && isWritten(fresh, text) &&
        placeFile(fresh, file)) {
        return true;
    }
    const LastErrorGuard keep;
    DeleteFileW(longPath(fresh).c_str());
    return false;
}

// Not more than a recovery file can hold.
bool readWhole(const std::wstring& path, std::string& text) {
    FileHandle file = openStoreForReading(path, FILE_SHARE_READ);
    uint64_t size = 0;
    if (!file || !fileSize(file.get(), size)) {
        return false;
    }
    if (size > recoveryFileLimit) {
        SetLastError(errorRecoveryFileDamaged);
        return false;
    }
    return readStore(std::move(file), text);
}

}  // namespace

bool KeyManagerImpl::globalKey(unsigned char* key, size_t keyLen, unsigned char* iv, size_t ivLen) {
    const FunctionTrace trace("KeyManagerImpl::globalKey", "keymanager.cpp");
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    if (!sizesAreRight(keyLen, ivLen) || !machineKey(bytes)) {
        return false;
    }
    split(bytes, key, iv);
    return true;
}

bool KeyManagerImpl::encryptStringToTextFile(const wchar_t* path, const std::string& text) {
    return writeEncodedFile(path, text);
}

bool KeyManagerImpl::decryptStringFromTextFile(const wchar_t* path, std::string& text) {
    return readEncodedFile(path, text);
}

KeyManagerImpl::KeyManagerImpl() {
    init();
}

KeyManagerImpl::~KeyManagerImpl() = default;

bool KeyManagerImpl::init() {
    const FunctionTrace trace("KeyManagerImpl::init", "keymanager.cpp");
    const std::wstring path = storePath(fileName);
    const bool read = loadEncodedStore(path, texts, keys_);
    loaded_ = read || isMissing(path);
    return read;
}

// The old file stays until the new one has been read back: with a user's key goes every backup.
bool KeyManagerImpl::save(const std::map<std::string, json_spirit::Value>& keys) const {
    const FunctionTrace trace("KeyManagerImpl::save", "keymanager.cpp");
    const std::wstring path = storePath(fileName);
    const std::wstring fresh = path.empty() ? path : path + L".new";
    std::map<std::string, json_spirit::Value> readBack;
    const bool written = saveEncodedStore(fresh, texts, keys) &&
                         loadEncodedStore(fresh, texts, readBack) && readBack == keys;
    if (written && replaceFile(fresh, path)) {
        return true;
    }
    const LastErrorGuard keep;
    log(LogLevel::error, "Failed to save the key storage file, %m.\n");
    DeleteFileW(longPath(fresh).c_str());
    return false;
}

// A file that could not be read is tried again: another program may have held it.
bool KeyManagerImpl::usable() {
    if (!loaded_) {
        init();
    }
    if (!loaded_) {
        log(LogLevel::error, "The key storage file is there but can't be read; no key is made.\n");
        SetLastError(ERROR_DECRYPTION_FAILED);
    }
    return loaded_;
}

bool KeyManagerImpl::storedKey(const std::string& entry, std::string& bytes) const {
    try {
        bytes = decodeBase64(keys_.at(entry).get_str());
        if (bytes.size() == userKeySize) {
            return true;
        }
    } catch (const std::runtime_error&) {
        bytes.clear();
    }
    return logFailed(ERROR_DECRYPTION_FAILED, "The stored key of user {%s} is damaged.\n",
                     entry.substr(0, entry.find('\n')));
}

// Another program may have put a key there since the file was read.
bool KeyManagerImpl::holds(const std::string& entry) {
    if (!keys_.contains(entry) && !isMissing(storePath(fileName))) {
        loaded_ = false;
    }
    return usable() && keys_.contains(entry);
}

// ERROR_NOT_FOUND when there is none.
bool KeyManagerImpl::heldKey(const std::string& entry, std::string& bytes) {
    if (!holds(entry)) {
        if (loaded_) {
            SetLastError(ERROR_NOT_FOUND);
        }
        return false;
    }
    return storedKey(entry, bytes);
}

bool KeyManagerImpl::findKey(const char* user, unsigned char* key, size_t keyLen, unsigned char* iv,
                             size_t ivLen) {
    const FunctionTrace trace("KeyManagerImpl::findKey", "keymanager.cpp");
    if (!argumentsAreRight(user, keyLen, ivLen)) {
        return false;
    }
    const std::lock_guard guard(lock_);
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    if (!heldKey(user, bytes) && (GetLastError() != ERROR_NOT_FOUND || !makeKey(user, bytes))) {
        return false;
    }
    split(bytes, key, iv);
    return true;
}

bool KeyManagerImpl::findHeldKey(const char* user, const char* md5, unsigned char* key,
                                 size_t keyLen, unsigned char* iv, size_t ivLen) {
    const FunctionTrace trace("KeyManagerImpl::findHeldKey", "keymanager.cpp");
    if (!argumentsAreRight(user, keyLen, ivLen) || isEmpty(md5)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::lock_guard guard(lock_);
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    const bool own = heldKey(user, bytes) && checksumOf(bytes) == md5;
    if (!own && !heldKey(beginningOfImported(user) + md5, bytes)) {
        return false;
    }
    split(bytes, key, iv);
    return true;
}

size_t KeyManagerImpl::importedKeys(const char* user) {
    if (isEmpty(user)) {
        return 0;
    }
    const std::lock_guard guard(lock_);
    return importedEntries(user).size();
}

std::vector<std::string> KeyManagerImpl::importedEntries(const std::string& user) const {
    const std::string beginning = beginningOfImported(user);
    std::vector<std::string> entries;
    for (auto at = keys_.lower_bound(beginning);
         at != keys_.end() && at->first.starts_with(beginning); ++at) {
        entries.push_back(at->first);
    }
    return entries;
}

bool KeyManagerImpl::makeKey(const char* user, std::string& bytes) {
    try {
        bytes = randomBytes(userKeySize);
        return addKeys({{user, encodeBase64(bytes)}});
    } catch (const std::runtime_error& error) {
        return logFailed(ERROR_GEN_FAILURE, "Failed to make a key for user {%s}: %s.\n", user,
                         error.what());
    }
}

bool KeyManagerImpl::addKeys(const std::map<std::string, json_spirit::Value>& fresh) {
    std::map<std::string, json_spirit::Value> keys = keys_;
    keys.insert(fresh.begin(), fresh.end());
    if (!save(keys)) {
        return false;
    }
    keys_ = std::move(keys);
    return true;
}

bool KeyManagerImpl::keyChecksum(const char* user, std::string& md5) {
    const FunctionTrace trace("KeyManagerImpl::keyChecksum", "keymanager.cpp");
    if (isEmpty(user)) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    const std::lock_guard guard(lock_);
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    if (!heldKey(user, bytes)) {
        return false;
    }
    md5 = checksumOf(bytes);
    return true;
}

// The own one first. Another program may have imported some since the file was read.
bool KeyManagerImpl::allKeys(const std::string& user, std::string& bytes) {
    if (!isMissing(storePath(fileName))) {
        loaded_ = false;
    }
    std::string each;
    const WipeAtEnd wiped(each);
    if (!heldKey(user, each)) {
        return false;
    }
    const std::vector<std::string> imported = importedEntries(user);
    bytes.reserve((1 + imported.size()) * userKeySize);
    bytes = each;
    for (const std::string& entry : imported) {
        if (!storedKey(entry, each)) {
            return false;
        }
        bytes += each;
    }
    return true;
}

// The own key stays the own one: it is in no recovery file perhaps, the imported ones are.
bool KeyManagerImpl::takeKeys(const std::string& user, const std::string& bytes) {
    std::map<std::string, json_spirit::Value> fresh;
    std::string own;
    const WipeAtEnd wipedOwn(own);
    if (!heldKey(user, own)) {
        if (GetLastError() != ERROR_NOT_FOUND) {
            return false;
        }
        own.assign(bytes, 0, userKeySize);
        fresh[user] = encodeBase64(own);
    }
    const size_t kept = importedEntries(user).size() + 1;
    size_t added = 0;
    for (size_t at = 0; at < bytes.size(); at += userKeySize) {
        std::string each = bytes.substr(at, userKeySize);
        const WipeAtEnd wipedEach(each);
        std::string held;
        const WipeAtEnd wipedHeld(held);
        const std::string entry = beginningOfImported(user) + checksumOf(each);
        if (each == own || heldKey(entry, held)) {
            continue;
        }
        if (GetLastError() != ERROR_NOT_FOUND) {
            return false;
        }
        added += fresh.emplace(entry, encodeBase64(each)).second ? 1 : 0;
    }
    if (added != 0 && kept + added > userKeyLimit) {
        SetLastError(ERROR_TOO_MANY_SECRETS);
        return false;
    }
    return fresh.empty() || addKeys(fresh);
}

bool KeyManagerImpl::exportKey(const char* user, const char* passphrase, const wchar_t* file) {
    const FunctionTrace trace("KeyManagerImpl::exportKey", "keymanager.cpp");
    const auto failed = [&](DWORD error) { return fail("write", file, error); };
    if (isEmpty(user) || isEmpty(passphrase) || file == nullptr || *file == L'\0') {
        return failed(ERROR_INVALID_PARAMETER);
    }
    if (fileExists(file)) {
        return failed(ERROR_FILE_EXISTS);
    }
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    {
        const std::lock_guard guard(lock_);
        if (!allKeys(user, bytes)) {
            return failed(GetLastError());
        }
    }
    try {
        const std::string text = sealRecoveryFile(
            user, bytes, passphrase, randomBytes(recoverySaltSize), randomBytes(recoveryNonceSize));
        return writeWhole(file, text) || failed(GetLastError());
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to seal the keys of user {%s}: %s.\n", user, error.what());
        return failed(ERROR_GEN_FAILURE);
    }
}

bool KeyManagerImpl::importKey(const char* user, const char* passphrase, const wchar_t* file,
                               std::string& owner) {
    const FunctionTrace trace("KeyManagerImpl::importKey", "keymanager.cpp");
    const auto failed = [&](DWORD error) { return fail("read", file, error); };
    owner.clear();
    if (isEmpty(passphrase) || file == nullptr || *file == L'\0') {
        return failed(ERROR_INVALID_PARAMETER);
    }
    std::string text;
    if (!readWhole(file, text)) {
        return failed(GetLastError());
    }
    std::string bytes;
    const WipeAtEnd wiped(bytes);
    try {
        switch (openRecoveryFile(text, passphrase, owner, bytes)) {
            case RecoveryFile::opened: break;
            case RecoveryFile::wrongPassphrase: return failed(errorWrongPassphrase);
            case RecoveryFile::damaged: return failed(errorRecoveryFileDamaged);
        }
        if (!isEmpty(user) && owner != user) {
            return failed(errorRecoveryFileOfOther);
        }
        const std::lock_guard guard(lock_);
        return takeKeys(owner, bytes) || failed(GetLastError());
    } catch (const std::exception& error) {
        log(LogLevel::error, "Failed to take the keys from \"%s\": %s.\n", toUtf8(file),
            error.what());
        return failed(ERROR_GEN_FAILURE);
    }
}

}  // namespace dorvo

template class ATL::CComSingleton<dorvo::KeyManagerImpl, ATL::CComAutoCriticalSection>;
