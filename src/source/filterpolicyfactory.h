// Makes the filter of a backup job; null means that everything passes. A list that makes no regular
// expression throws std::regex_error.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "base/api.h"
#include "jobdef/backupjobdefinition.h"
#include "source/filterpolicy.h"

namespace dorvo {

class DORVO_JOB_API FilterPolicyFactory {
public:
    // 1 keeps only the extensions, 2 leaves them out, any other type is no filter.
    static std::unique_ptr<FilterPolicy> create(int type,
                                                const std::vector<std::wstring>& extensions);
    static std::unique_ptr<FilterPolicy> create(const BackupJobDefinition& definition);
};

}  // namespace dorvo
