// Writes a source list, record by record, through a buffer of 8 KiB.
//
// A record is in the file when the buffer has filled or flush() or close() has answered true. Once
// a write has failed, everything fails with its error. One thread at a time.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <span>
#include <string>

#include "base/handle_streambuf.h"

namespace dorvo {

class JobHistorySourceWriter : public write_handle_streambuf {
public:
    // Opens the file for writing; others may read it. Without `append` it is made anew; with it,
    // records are added to the end of a list that must exist and not be empty. Closes a list that
    // was open before. False is logged; last error.
    bool open(const std::wstring& path, bool append);

    bool startSet();
    bool endSet();
    // False, with last error 206 and nothing written, for a name that no record can hold.
    bool addVolume(const std::wstring& name);
    bool addEntry(const std::wstring& name, const WIN32_FILE_ATTRIBUTE_DATA& data, uint64_t value);

    // True when a "FILE" or "DIRB" record can hold the name.
    static bool fits(const std::wstring& name);

private:
    bool put(std::span<const std::byte> record);
};

// Makes a source list so that what lies under its name is whole at any time: lets `fill` write the
// records, the brackets around them excepted, into a file of another name, brings it onto the disk
// and renames it to `path`, whatever was there before. False, with the last error and no trace
// left, when any of it fails: `fill` answers false with the last error, or throws. A failed write
// is logged.
bool writeSourceListFile(const std::wstring& path,
                         const std::function<bool(JobHistorySourceWriter& writer)>& fill);

}  // namespace dorvo
