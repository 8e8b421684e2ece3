// What a walk over sources reports to: one call for every file and directory found.
#pragma once

#include <windows.h>

#include "base/api.h"

namespace dorvo {

class DORVO_JOB_API SourceWalker {
public:
    SourceWalker() = default;
    SourceWalker(const SourceWalker&) = default;
    SourceWalker& operator=(const SourceWalker&) = default;
    virtual ~SourceWalker() = default;

protected:
    friend class SourceWalk;
    // `path` is the entry's full path and lives as long as the call.
    virtual void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) = 0;
};

}  // namespace dorvo
