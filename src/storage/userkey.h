// A user's encryption key, as runs take it out of the machine's key store.
//
// False leaves the last error and is not logged: errorKeyMissing when the user has no key on this
// machine, errorKeyForeign when only others than the one that is asked for; else the key store's.
// Any thread.
#pragma once

#include <array>
#include <cstdint>
#include <string>

namespace dorvo {

struct UserKey {
    std::array<uint8_t, 16> key{};
    std::array<uint8_t, 16> iv{};
};

// The machine's own key of the user; made when there is none.
bool ownKey(const std::string& user, UserKey& key);

// The user's key with that MD5 of its 32 bytes: the machine's own, or one that was imported.
bool heldKey(const std::string& user, const std::string& md5, UserKey& key);

}  // namespace dorvo
