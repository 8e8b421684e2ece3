// The calls that a walk over sources makes, replaceable for tests.
//
// Answers and last errors are those of the Win32 functions. Paths come as the walk shows them; the
// real calls take their long form.
#pragma once

#include <windows.h>

#include <string>

namespace dorvo {

class SourceFileSystem {
public:
    virtual ~SourceFileSystem() = default;

    virtual bool attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data);
    // The same of what a link at the path leads to; never with the mark of a link.
    virtual bool targetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data);
    // INVALID_HANDLE_VALUE on failure; else findClose comes once.
    virtual HANDLE findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry);
    virtual bool findNext(HANDLE search, WIN32_FIND_DATAW& entry);
    virtual void findClose(HANDLE search);
};

}  // namespace dorvo
