// Reads a source list, record by record.
//
// next() reads one record into the reader's buffer; volume() and entry() decode the record that
// stands there. offset() is where the following record begins: a run that is to go on after the
// current record stores it and hands it to open() later. One thread at a time.
#pragma once

#include <windows.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "base/handle.h"
#include "record/sourcerecord.h"

namespace dorvo {

class JobActivitySourceReader {
public:
    // Opens the list at the offset, a former offset() or 0. False is logged; last error.
    bool open(const std::wstring& path, int64_t offset);
    // Goes to a former offset(). False is logged; last error.
    bool seek(int64_t offset);
    void close() { file_.reset(); }

    // The tag of the next record (tagFile and so on), 0 at the end, on damage and on failure. A
    // list that ends before its tagSetEnd is damaged: that is for the caller to see.
    uint32_t next();
    // Where the next record begins; -1 is logged.
    int64_t offset() const;

    // The current record's content; false, with last error 13, when it is another kind or damaged.
    bool volume(std::wstring& name) const;
    bool entry(std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data, uint64_t& value) const;

private:
    FileHandle file_;
    std::vector<std::byte> record_;
};

}  // namespace dorvo
