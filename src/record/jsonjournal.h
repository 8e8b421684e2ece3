// The elements that a JSON array has got since its document was last written: a file of one line
// an element, which only grows.
//
// A line holds the element's place in the array, and what stands in the document too is passed
// over, so that the document may be replaced before the journal goes. An element counts once it is
// flushed; what a dead process has left of one behind the last of them is cut off by the next. One
// thread. docs/formats/history.md has the file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "base/handle.h"
#include "json_spirit/value.h"

namespace dorvo {

class JsonJournal {
public:
    explicit JsonJournal(std::wstring path) : path_(std::move(path)) {}
    JsonJournal(const JsonJournal&) = delete;
    JsonJournal& operator=(const JsonJournal&) = delete;

    // Adds what the file holds to the document's elements; a file that is missing holds nothing.
    // False with the last error when it cannot be read, ERROR_FILE_CORRUPT when elements are
    // missing in between; `elements` then stays as it was.
    bool load(json_spirit::Array& elements);

    // Puts the element that has this place on the disk; makes missing folders. False with the last
    // error, and the file then counts as it was.
    bool append(size_t place, const json_spirit::Value& element);

    // Deletes the file. False with the last error.
    bool remove();

private:
    bool take(std::string_view text, json_spirit::Array& elements);
    bool openForAppending();

    const std::wstring path_;
    FileHandle file_;   // from the first append on
    uint64_t end_ = 0;  // of the last whole line
};

}  // namespace dorvo
