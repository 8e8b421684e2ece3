// The machine's global key, which encodes the secret stores, and each user's encryption keys.
//
// The global key is made once a machine and kept in the registry. A user has one key that is the
// machine's own, made when it is first asked for, or imported before that; further ones may be
// imported beside it, for the backups that were made with them. They are kept encoded in "\keys" of
// the data directory; what is in that file is never given up: while it is there and cannot be read,
// or a user's entry is damaged, no key is made.
// One object a process, reached through CComSingleton<KeyManagerImpl, CComAutoCriticalSection>.
// Any thread. Failures are logged and leave the last error set.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/singleton.h"
#include "json_spirit/value.h"

namespace dorvo {

constexpr size_t aesKeySize = 16;
constexpr size_t aesIvSize = 16;
constexpr size_t userKeyLimit = 64;  // keys of one user, so that a recovery file holds them all

class DORVO_JOB_API KeyManagerImpl {
public:
    KeyManagerImpl();
    ~KeyManagerImpl();
    KeyManagerImpl(const KeyManagerImpl&) = delete;
    KeyManagerImpl& operator=(const KeyManagerImpl&) = delete;

    // These three use no store and take no store's lock.

    // The same 16 bytes of key and 16 of IV at every call on one machine; other sizes fail.
    static bool globalKey(unsigned char* key, size_t keyLen, unsigned char* iv, size_t ivLen);

    // Writes the text encrypted with the global key, as one line of Base64. True also when the
    // bytes could not be written (that is logged).
    static bool encryptStringToTextFile(const wchar_t* path, const std::string& text);
    static bool decryptStringFromTextFile(const wchar_t* path, std::string& text);

    // The user's own 16 bytes of key and 16 of IV, made and saved when there is none. Nothing is
    // handed out that is not safely in the file. ERROR_DECRYPTION_FAILED when the file or the
    // user's entry cannot be read.
    bool findKey(const char* user, unsigned char* key, size_t keyLen, unsigned char* iv,
                 size_t ivLen);

    // The MD5 of the user's own 32 bytes (key, then IV) as 32 hexadecimal digits. Makes no key:
    // ERROR_NOT_FOUND when the user has none.
    bool keyChecksum(const char* user, std::string& md5);

    // As findKey, but the one of the user's keys that has this checksum, own or imported. Makes
    // none: ERROR_NOT_FOUND when the user has no such key.
    bool findHeldKey(const char* user, const char* md5, unsigned char* key, size_t keyLen,
                     unsigned char* iv, size_t ivLen);

    // How many keys were imported beside the user's own. 0 also when they cannot be read.
    size_t importedKeys(const char* user);

    // Writes all keys of the user to a recovery file that the passphrase opens. It appears under
    // its name only when it is whole and on the disk, readable by its owner and administrators
    // where the file system knows them. Never replaces a file: ERROR_FILE_EXISTS. Makes no key:
    // ERROR_NOT_FOUND when the user has none, ERROR_DECRYPTION_FAILED when one of them cannot be
    // read. 87 for an empty user, passphrase or file.
    bool exportKey(const char* user, const char* passphrase, const wchar_t* file);

    // Takes all keys from a recovery file; `owner` becomes the user whose they are. An empty user
    // stands for whoever that is. The first becomes the user's own where there is none; a key that
    // is there stays, and the others are kept beside it. errorWrongPassphrase,
    // errorRecoveryFileDamaged, and errorRecoveryFileOfOther (with `owner` filled) when the file is
    // another user's; ERROR_TOO_MANY_SECRETS when the user would have more than userKeyLimit keys;
    // else the code of what failed. Nothing has changed then.
    bool importKey(const char* user, const char* passphrase, const wchar_t* file,
                   std::string& owner);

private:
    bool init();
    bool save(const std::map<std::string, json_spirit::Value>& keys) const;
    bool usable();
    bool holds(const std::string& entry);
    bool storedKey(const std::string& entry, std::string& bytes) const;
    bool heldKey(const std::string& entry, std::string& bytes);
    bool makeKey(const char* user, std::string& bytes);
    bool addKeys(const std::map<std::string, json_spirit::Value>& fresh);
    std::vector<std::string> importedEntries(const std::string& user) const;
    bool allKeys(const std::string& user, std::string& bytes);
    bool takeKeys(const std::string& user, const std::string& bytes);

    CriticalSection lock_;  // guards what follows, and the file
    // The user, or the user, a line feed and the checksum of an imported key -> Base64 of 32 bytes.
    std::map<std::string, json_spirit::Value> keys_;
    bool loaded_ = false;  // keys_ is what the file holds
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::KeyManagerImpl, ATL::CComAutoCriticalSection>;
