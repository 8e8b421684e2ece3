// The passwords with which the HTTP layer logs in again when a session is refused.
//
// Kept encoded in "\passwords" of the data directory. A password belongs to the server that it was
// given for (serverbinding.h), which without a `server` is the one that is set. One object a
// process, reached through CComSingleton<PasswordManagerImpl, CComAutoCriticalSection>; it reads
// its file when it is made. Any thread. A null or empty argument makes an operation return false
// without doing anything; an operation that changes something returns whether the file could be
// written.
#pragma once

#include <map>
#include <string>

#include "base/api.h"
#include "base/critical_section.h"
#include "base/singleton.h"
#include "settings/serverbinding.h"

namespace dorvo {

class DORVO_JOB_API PasswordManagerImpl {
public:
    PasswordManagerImpl();
    ~PasswordManagerImpl();
    PasswordManagerImpl(const PasswordManagerImpl&) = delete;
    PasswordManagerImpl& operator=(const PasswordManagerImpl&) = delete;

    bool savePassword(const char* user, const char* password);
    bool savePassword(const char* user, const char* password, const std::string& server);
    // Writes the file even when the user had no password.
    bool removePassword(const char* user);

    // Gives passwords to the server; writes nothing when nothing changes.
    bool bindTo(const std::string& server, Bind which);

    // Byte by byte the stored one.
    bool isPasswordValid(const char* user, const char* password) const;
    // Of those for the server.
    bool findPassword(const char* user, std::string& password) const;
    bool findPassword(const char* user, std::string& password, const std::string& server) const;
    // A password of the user is kept, for whatever server.
    bool hasPassword(const char* user) const;

private:
    bool init();
    bool save() const;

    mutable CriticalSection lock_;  // guards passwords_ and the file
    StoreEntries passwords_;        // user -> password
};

}  // namespace dorvo

extern template class DORVO_JOB_API
    ATL::CComSingleton<dorvo::PasswordManagerImpl, ATL::CComAutoCriticalSection>;
