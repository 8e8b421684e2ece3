// Says which entries of a walk belong to a backup.
#pragma once

#include "base/api.h"

namespace dorvo {

class DORVO_JOB_API FilterPolicy {
public:
    FilterPolicy() = default;
    FilterPolicy(const FilterPolicy&) = default;
    FilterPolicy& operator=(const FilterPolicy&) = default;
    virtual ~FilterPolicy();

    // `name` is a full path or an entry's bare name, up to 32767 characters.
    virtual bool isInclude(const wchar_t* name) = 0;
};

}  // namespace dorvo
