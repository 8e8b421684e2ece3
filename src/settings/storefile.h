// The files of the stores: where they lie, and reading and writing one as a whole.
//
// Functions leave the reason of a failure in the thread's last error.
#pragma once

#include <windows.h>

#include <string>

#include "base/handle.h"

namespace dorvo {

// The data directory and `name`, which begins with a backslash; empty when the folder query fails.
std::wstring storePath(const wchar_t* name);

bool fileExists(const std::wstring& path);
// True only when it is known that nothing is there: a path that cannot be looked at is not missing.
bool isMissing(const std::wstring& path);

// `share` as in CreateFileW. The writing form makes the file anew and makes missing folders.
FileHandle openStoreForReading(const std::wstring& path, DWORD share);
FileHandle openStoreForWriting(const std::wstring& path, DWORD share);

// A new file that only the user of this process, the administrators and the system may open, where
// the file system knows them. Fails when it is there already.
FileHandle createPrivateFile(const std::wstring& path);

// Waits until the file is on the disk.
bool flushFile(const std::wstring& path);
// Puts the file `from` in the place of `to` when it is on the disk: a power cut leaves the old file
// or the new one, whole. A file that another program has open is tried again for a second; on
// failure both are as they were.
bool replaceFile(const std::wstring& from, const std::wstring& to);
// The same with the text, which is written to `path` + ".new"; on failure that is gone. Makes no
// folders.
bool replaceStore(const std::wstring& path, const std::string& text);
// Puts the file where nothing is; ERROR_FILE_EXISTS when something is.
bool placeFile(const std::wstring& from, const std::wstring& to);

bool readStore(FileHandle file, std::string& text);
bool writeStore(FileHandle file, const std::string& text);

}  // namespace dorvo
