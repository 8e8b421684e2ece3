// Reads and replaces a definition's file as a whole. Failures leave the last error set.
#pragma once

#include <string>

namespace dorvo::jobdef {

// ERROR_FILE_TOO_LARGE above 16 MiB.
bool readFile(const std::wstring& path, std::string& text);

// Writes and flushes <path>.new, which then takes the place of `path`; makes missing folders. After
// a failure the old file is whole and no new one is left over.
bool replaceFile(const std::wstring& path, const std::string& text);

}  // namespace dorvo::jobdef
