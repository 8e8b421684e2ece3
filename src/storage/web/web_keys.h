// The key with which a user's backups are encrypted, agreed on with the storage server.
//
// The server keeps the MD5 of the user's 32 key bytes, so that a machine with another key, or with
// none, is told so before it stores or fetches what it cannot read afterwards.
#pragma once

#include <windows.h>

#include <string>

#include "storage/userkey.h"

namespace dorvo {

enum class KeyUse { backup, restore };

// Gives the user's key before a run starts at the web service that the options name: of those on
// this machine the one that the service knows, and where it knows none the machine's own, which it
// then is told. A key is made only for a backup, and only when neither the service nor this machine
// has one. Logs in again as a Web_Session does; `stop` (borrowed, may be null) breaks it off. Not
// for ending or cancelling a run, which needs no key.
//
// False is logged and leaves the last error: errorKeyMissing or errorKeyForeign, which another try
// does not mend; the key store's errors; socket errors and marked HTTP statuses as they are; 87
// when no server is set, 13 for an answer that is none.
bool agreeOnKey(const std::string& user, KeyUse use, HANDLE stop, UserKey& key);

}  // namespace dorvo
