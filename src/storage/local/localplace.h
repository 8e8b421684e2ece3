// Where the backups of one job of one machine lie in a folder:
// <location>\<machine>\<job id>\<instance id>\.
//
// A value; any thread. False leaves the last error and is not logged unless it says so.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "storage/local/localinstancedocument.h"
#include "storage/local/localrecord.h"
#include "storage/userkey.h"

namespace dorvo {

class LocalPlace {
public:
    // The names may be anything; check() judges them.
    LocalPlace(std::wstring location, const std::string& machine, const std::string& jobId);

    // True when the names can stand in a path and the location is there. 87, 10070; logged.
    bool check() const;
    // The same, and the location is more than the empty folder that shows where a disk is not
    // mounted: 10070 for that one, in which the job's backups lay. A mark in the location tells,
    // and the job's own folder remembers that it has one. A new place, and one of an older version
    // that holds a document of the job, get their mark when they are to be written to.
    bool checkToWrite() const;
    // For a run's instance that is to be dropped, whether it is there or not: the location has a
    // mark, the instance or a document of the job, else it is away.
    bool checkToDrop(const std::string& id) const;
    // For who reads the job's backups: 10070 when the place is away, 1168 for a folder that never
    // held any of them.
    bool checkToRead() const;
    // Has the folder of the job of that id remember the location, from which it reads.
    void remember(const std::string& jobId) const;
    // The location has neither a mark nor the job's folder, and some job of this machine remembers
    // backups there.
    bool isAway() const;

    const std::wstring& location() const { return location_; }
    const std::string& machine() const { return machine_; }
    const std::string& jobId() const { return jobId_; }
    // The folder of an instance. Of an id that is no UUID's text, a folder that never exists.
    std::wstring instance(const std::string& id) const;
    std::wstring packages(const std::string& id) const { return instance(id) + L"\\packages"; }
    std::wstring index(const std::string& id) const { return instance(id) + L"\\index"; }
    std::wstring awaited(const std::string& id) const { return instance(id) + L"\\awaited"; }
    std::wstring document(const std::string& id) const { return instance(id) + L"\\instance"; }
    std::wstring damaged(const std::string& id) const { return instance(id) + L"\\damaged"; }

    // Makes the folder of an instance, in a location that is there.
    bool makeInstance(const std::string& id) const;

    // The instance's document. 2 or 3 when there is none, 13 when it is none or another's.
    bool load(const std::string& id, LocalInstanceDocument& document) const;
    // The same where there may be none: then the document has no id.
    bool find(const std::string& id, LocalInstanceDocument& document) const;
    // Of an instance that is to be read back: 1168 when there is none, 5023 when it was never
    // completed.
    bool loadCompleted(const std::string& id, LocalInstanceDocument& document) const;
    // On the disk when true comes back; the old document stays whole until then.
    bool save(const LocalInstanceDocument& document) const;

    // Calls for each instance that has a document, in no order. One that cannot be read is logged,
    // and `unreadable` is called with its id. False when the folder cannot be listed; one that is
    // not there holds none.
    bool each(const std::function<void(const LocalInstanceDocument&)>& visit,
              const std::function<void(const std::string&)>& unreadable) const;

    struct Newest {
        LocalInstanceDocument completed;   // the last completed instance; no id: there is none
        uint64_t sequence = 0;             // no instance has a greater one
        std::vector<std::string> running;  // ids of those that were never completed
    };
    // Of the instances but `except`.
    bool newest(const std::string& except, Newest& found) const;

private:
    bool holdsDocument() const;
    // What the job's note says of the place.
    enum class Remembered { no, yes, unread };
    Remembered remembered(const std::string& jobId) const;
    bool isRemembered(const std::string& jobId) const;
    void mark() const;

    std::wstring location_;
    std::string machine_;
    std::string jobId_;
    std::wstring folder_;  // of the job's instances; empty when the names are none
};

// What instanceText() makes a text of; zeros for a text that is none.
LocalInstanceId localInstanceId(const std::string& text);

// Of a file or a folder above it.
bool isNotFound(DWORD error);

// Calls for each folder in a folder, but for links. False when it cannot be listed.
bool eachFolder(const std::wstring& folder, const std::function<void(const std::wstring&)>& visit);

// The MD5 by which an instance's document knows the key it was made with, as the key manager gives
// it.
std::string keyMd5(const UserKey& key);

// A path as an index has it: UTF-16 without a trailing backslash, any units that the platform
// takes.
inline std::u16string localPath(std::wstring_view path) {
    if (path.size() > 1 && path.back() == L'\\') {
        path.remove_suffix(1);
    }
    return {path.begin(), path.end()};
}

inline std::wstring widePath(std::u16string_view path) {
    return {path.begin(), path.end()};
}

}  // namespace dorvo
