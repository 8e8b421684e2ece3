// The data directory between processes: who may run its jobs, and what comes and goes in it.
//
// One process at a time owns it. What is held is the file "owner" of the directory, open without
// sharing it for writing, so that only who may write there can hold it; a name that any program can
// make would let any program keep the agent out. The file says who holds it and goes with its
// handle: the system closes that of a process that dies, and one that a power cut has left is
// opened anew. Failures are AgentErrors.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>

#include "base/handle.h"
#include "text/agenterror.h"

namespace dorvo::agent {

// Notices files that come to the data directory or go from it. One thread. Where the system gives
// no such notice, only the time and the other handle end a wait.
class DirectoryWatch {
public:
    enum class Woken { change, other, time };

    // From now on. Makes the directory where it isn't there; throws AgentError.
    DirectoryWatch();

    // Until a file has come or gone since the construction or the last Woken::change, or `other`
    // (borrowed, may be null) is signalled, or the time is over.
    Woken wait(HANDLE other, DWORD ms);

    // For a wait beside something else; null where there is no notice. After its signal taken()
    // makes it ready for the next.
    HANDLE handle() const { return changes_ ? changes_.get() : nullptr; }
    void taken();

private:
    struct Policy {
        using value_type = HANDLE;
        static value_type invalid() { return INVALID_HANDLE_VALUE; }
        static void close(value_type value) { FindCloseChangeNotification(value); }
    };

    UniqueHandle<Policy> changes_;
};

// What the file says of the process that has it open.
struct Holder {
    uint32_t process = 0;
    bool resident = false;
    std::string command;  // its command line, UTF-8

    bool operator==(const Holder&) const = default;
};

// "process 4711 (agent backup C:\data)".
std::string holderText(const Holder& holder);

// Another process runs jobs.
class DataOwned : public AgentError {
public:
    explicit DataOwned(std::optional<Holder> holder);

    // Nothing when the file does not say it yet.
    const std::optional<Holder>& holder() const { return holder_; }

private:
    std::optional<Holder> holder_;
};

// The right to run jobs on this machine, held while the object lives. Any thread.
class DataOwner {
public:
    enum class Role { command, resident };

    // How long, and for whom, another process is waited for.
    struct Patience {
        // Borrowed; its signal, which an event of auto reset loses, ends it.
        HANDLE giveUp = nullptr;
        DWORD ms = 0;  // INFINITE for as long as it takes
        // A file that is just being deleted is denied: so long at most.
        ULONGLONG deletionMs = 2'000;
        // Called at the beginning and whenever another process has it; what it throws ends the
        // wait.
        std::function<void(const std::optional<Holder>& holder)> waits;
    };

    // Throws DataOwned when another process still has it at the end of the patience; another
    // AgentError when the directory or its file cannot be made.
    explicit DataOwner(Role role, const Patience& patience);
    DataOwner(const DataOwner&) = delete;
    DataOwner& operator=(const DataOwner&) = delete;

    // Who has it; nothing when nobody has, or the file cannot be read or does not say it.
    static std::optional<Holder> holder();

private:
    FileHandle file_;
};

}  // namespace dorvo::agent
