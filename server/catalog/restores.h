// Restores of backups: who made them, what failed, how they ended. What all calls keep to stands in
// catalog.h.
#pragma once

#include "catalog/accounts.h"
#include "catalog/instances.h"

namespace dorvo {

// One restore of a backup, by one of its user's machines.
struct Restore {
    int64_t id = 0;
    int64_t userId = 0;
};

class Restores {
public:
    virtual ~Restores() = default;

    // The name must be new. The user's oldest restores are forgotten beyond so many.
    virtual void openRestore(const Session& session, std::string_view name,
                             std::string_view definition, int64_t instance, size_t kept) = 0;
    virtual std::optional<Restore> findRestore(std::string_view name) = 0;
    // As addErrors; beyond so many errors of the restore they are not kept.
    virtual void addRestoreErrors(int64_t restore, const std::vector<FailedFile>& errors,
                                  size_t kept) = 0;
    // Replaces the one before.
    virtual void putHistory(int64_t restore, std::string_view history) = 0;
};

}  // namespace dorvo
