// The right to run jobs on this machine: one process at a time owns the data directory.
//
// Held while the object lives; the system takes it back from a process that dies. Made and
// destroyed on one thread.
#pragma once

#include <string>

#include "agenterror.h"
#include "base/handle.h"

namespace dorvo::agent {

// Another process runs jobs.
class DataOwned : public AgentError {
public:
    using AgentError::AgentError;
};

class DataOwner {
public:
    // Waits for that long until no other process has it. Throws DataOwned when one still does, and
    // as soon as `giveUp` is signalled (borrowed; null for never), whose signal an event of auto
    // reset loses; another AgentError when the directory or its lock cannot be made.
    explicit DataOwner(HANDLE giveUp = nullptr, DWORD patienceMs = 0);
    ~DataOwner();
    DataOwner(const DataOwner&) = delete;
    DataOwner& operator=(const DataOwner&) = delete;

    // The name of the mutex: made of the directory's path, whatever its case.
    static std::wstring mutexName(const std::wstring& dataDirectory);

private:
    KernelHandle mutex_;
};

}  // namespace dorvo::agent
