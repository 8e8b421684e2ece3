#include "record/jsonjournal.h"

#include <windows.h>

#include <span>
#include <utility>

#include "base/files.h"
#include "base/paths.h"
#include "base/sharing_retry.h"
#include "json_spirit/json_spirit.h"
#include "settings/storefile.h"

namespace dorvo {
namespace {

using json_spirit::Array;
using json_spirit::Value;

// False when the line is none of ours.
bool parse(std::string_view line, uint64_t& place, Value& element) {
    Value value;
    try {
        json_spirit::read_or_throw(std::string(line), value);
    } catch (const json_spirit::Error_position&) {
        return false;
    }
    if (value.type() != json_spirit::array_type || value.get_array().size() != 2 ||
        value.get_array()[0].type() != json_spirit::int_type ||
        (!value.get_array()[0].is_uint64() && value.get_array()[0].get_int64() < 0)) {
        return false;
    }
    place = value.get_array()[0].get_uint64();
    element = std::move(value.get_array()[1]);
    return true;
}

bool corrupt() {
    SetLastError(ERROR_FILE_CORRUPT);
    return false;
}

}  // namespace

bool JsonJournal::load(Array& elements) {
    file_.reset();
    end_ = 0;
    std::string text;
    FileHandle file;
    SharingRetry retry;
    do {
        file = openStoreForReading(path_, FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE);
    } while (!file && retry.again());
    if (!file) {
        return GetLastError() == ERROR_FILE_NOT_FOUND || GetLastError() == ERROR_PATH_NOT_FOUND;
    }
    Array all = elements;
    if (!readStore(std::move(file), text) || !take(text, all)) {
        return false;
    }
    elements = std::move(all);
    return true;
}

bool JsonJournal::take(std::string_view text, Array& elements) {
    while (end_ < text.size()) {
        const std::string_view rest = text.substr(end_);
        const size_t length = rest.find('\n');
        uint64_t place = 0;
        Value element;
        if (length == std::string_view::npos || !parse(rest.substr(0, length), place, element)) {
            // Each line is flushed before the next is begun: only the last can be half there.
            return length == std::string_view::npos || length + 1 == rest.size() || corrupt();
        }
        if (place > elements.size()) {
            return corrupt();
        }
        if (place == elements.size()) {
            elements.push_back(std::move(element));
        }
        end_ += length + 1;
    }
    return true;
}

bool JsonJournal::openForAppending() {
    for (const bool again : {false, true}) {
        SharingRetry retry;
        do {
            file_.reset(CreateFileW(longPath(path_).c_str(), GENERIC_WRITE,
                                    FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                                    FILE_ATTRIBUTE_NORMAL, nullptr));
        } while (!file_ && retry.again());
        if (file_ || again || GetLastError() != ERROR_PATH_NOT_FOUND ||
            !createDirectories(path_.substr(0, path_.find_last_of(L"\\/")))) {
            break;
        }
    }
    return static_cast<bool>(file_);
}

bool JsonJournal::append(size_t place, const Value& element) {
    if ((!file_ && !openForAppending()) || !resizeFile(file_.get(), end_)) {
        return false;
    }
    const std::string line =
        json_spirit::write(Value(Array{static_cast<uint64_t>(place), element})) + "\n";
    if (!writeFileAt(file_.get(), end_, std::as_bytes(std::span(line))) ||
        FlushFileBuffers(file_.get()) == 0) {
        return false;
    }
    end_ += line.size();
    return true;
}

bool JsonJournal::remove() {
    file_.reset();
    if (DeleteFileW(longPath(path_).c_str()) == 0 && GetLastError() != ERROR_FILE_NOT_FOUND &&
        GetLastError() != ERROR_PATH_NOT_FOUND) {
        return false;
    }
    end_ = 0;
    return true;
}

}  // namespace dorvo
