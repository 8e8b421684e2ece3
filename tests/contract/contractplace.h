// A storage back end under the contract suite: the back end, and a few things of the test's own.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <ostream>
#include <string>

#include "storage/backend.h"

namespace dorvo::test {

class ContractPlace {
public:
    virtual ~ContractPlace() = default;

    virtual const Backend& backend() const = 0;
    // As which the back end backs up.
    virtual const char* machine() const = 0;
    // Changes the first byte of the first package that the newest instance has brought.
    virtual void damage(const StoredRun& run) = 0;
    // Bytes of all packages that are kept.
    virtual uint64_t kept() = 0;
    // The error for what the state of an instance forbids.
    virtual DWORD wrongState() const = 0;
    // Whether the end of a run says which items are missing, and goes on without them.
    virtual bool namesWhatIsMissing() const = 0;
};

// The back ends of this run by name: the service that DORVO_CONTRACT_SERVER names, else a folder.
// The variable has lines: host, port, user, password, the service's data folder.
struct NamedPlace {
    const char* name;
    std::function<std::unique_ptr<ContractPlace>()> make;

    friend void PrintTo(const NamedPlace& place, std::ostream* out) { *out << place.name; }
};
NamedPlace localPlace();
NamedPlace webPlace(const std::string& server);

}  // namespace dorvo::test
