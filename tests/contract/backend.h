// A storage back end as the contract suite sees it: the four interfaces, and a few things of the
// test's own.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "record/jobactivity.h"
#include "source/incrementcheck.h"
#include "storage/backupstorage.h"
#include "storage/faileditems.h"
#include "storage/request_bodies.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"

namespace dorvo::test {

using UserKey = std::array<uint8_t, 16>;

class BackEnd {
public:
    struct Run {
        std::string jobId;
        std::string instanceId;
        UserKey key{};
        bool compress = false;
        SourceTotals totals;
        JobActivity* activity = nullptr;
        FailedItems* failed = nullptr;
        HANDLE stop = nullptr;
    };
    struct Restore {
        std::string jobId;  // of the restore
        std::string backupJob;
        std::string instanceId;  // of the backup
        UserKey key{};
        JobActivity* activity = nullptr;
        FailedItems* failed = nullptr;
        HANDLE stop = nullptr;
    };

    virtual ~BackEnd() = default;

    virtual std::unique_ptr<BackupStorage> backup(const Run& run) = 0;
    virtual std::unique_ptr<IncrementCheck> check(const Run& run) = 0;
    virtual std::unique_ptr<RestoreStorage> restore(const Restore& restore) = 0;
    virtual std::unique_ptr<RestoreCatalog> catalog(const std::string& backupJob,
                                                    const std::string& instanceId) = 0;

    // Changes the first byte of the first package that the newest instance has brought.
    virtual void damage(const std::string& backupJob, const std::string& instanceId) = 0;
    // Bytes of all packages that are kept.
    virtual uint64_t kept() = 0;
    // The error for what the state of an instance forbids.
    virtual DWORD wrongState() const = 0;
    // Whether the end of a run says which items are missing, and goes on without them.
    virtual bool namesWhatIsMissing() const = 0;
};

// The back ends of this run by name: the service that DORVO_CONTRACT_SERVER names, else a folder.
// The variable has lines: host, port, user, password, the service's data folder.
struct NamedBackEnd {
    const char* name;
    std::function<std::unique_ptr<BackEnd>()> make;

    friend void PrintTo(const NamedBackEnd& backEnd, std::ostream* out) { *out << backEnd.name; }
};
NamedBackEnd localBackEnd();
NamedBackEnd webBackEnd(const std::string& server);

}  // namespace dorvo::test
