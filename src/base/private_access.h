// Who may open what this process makes: its own user, the administrators and the system.
//
// Handed to the system when the object is made, so that nobody gets in between. Where the file
// system knows no access rights it means nothing.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

namespace dorvo {

class PrivateAccess {
public:
    enum class Kind {
        file,
        folder,       // and what is made in it
        registryKey,  // and what is made in it
        mutex
    };

    explicit PrivateAccess(Kind kind);

    // For the call that makes the object, while this lives. Null, with the last error, when the
    // system does not tell who the user is: then nothing may be made.
    SECURITY_ATTRIBUTES* attributes() { return descriptor_ ? &attributes_ : nullptr; }

private:
    struct FreeLocal {
        void operator()(void* memory) const { LocalFree(memory); }
    };

    std::unique_ptr<void, FreeLocal> descriptor_;
    SECURITY_ATTRIBUTES attributes_{};
};

// Whether a folder belongs to the administrators, the system or this process's user: whoever else
// owns it may have put anything into it. False with the last error, 0 when it is somebody else's.
bool isOwnedByOurs(const std::wstring& folder);

// Gives a folder that is there to the administrators, so that they and the system alone may open it
// and what lies in it with the folder's rights. False with the last error.
bool giveToAdministrators(const std::wstring& folder);

}  // namespace dorvo
