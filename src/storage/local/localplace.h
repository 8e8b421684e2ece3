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

#include "storage/local/localinstancedocument.h"
#include "storage/local/localrecord.h"

namespace dorvo {

class LocalPlace {
public:
    // The names may be anything; check() judges them.
    LocalPlace(std::wstring location, const std::string& machine, const std::string& jobId);

    // True when the names can stand in a path and the location is there. 87, 10070; logged.
    bool check() const;

    const std::wstring& location() const { return location_; }
    // The folder of an instance. Of an id that is no UUID's text, a folder that never exists.
    std::wstring instance(const std::string& id) const;
    std::wstring packages(const std::string& id) const { return instance(id) + L"\\packages"; }
    std::wstring index(const std::string& id) const { return instance(id) + L"\\index"; }
    std::wstring awaited(const std::string& id) const { return instance(id) + L"\\awaited"; }
    std::wstring document(const std::string& id) const { return instance(id) + L"\\instance"; }

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

    // Calls for each instance that has a document, in no order; one that cannot be read is logged
    // and left out. False when the folder cannot be listed; one that is not there holds none.
    bool each(const std::function<void(const LocalInstanceDocument&)>& visit) const;

    struct Newest {
        LocalInstanceDocument completed;  // the last completed instance; no id: there is none
        uint64_t sequence = 0;            // the greatest of all instances
    };
    // Of the instances but `except`.
    bool newest(const std::string& except, Newest& found) const;

private:
    std::wstring location_;
    std::wstring folder_;  // of the job's instances; empty when the names are none
};

// Both forms of an instance's id. Zeros and an empty text stand for what is none.
LocalInstanceId localInstanceId(const std::string& text);
std::string localInstanceText(const LocalInstanceId& id);

// Of a file or a folder above it.
bool isNotFound(DWORD error);

// Calls for each folder in a folder, but for links. False when it cannot be listed.
bool eachFolder(const std::wstring& folder, const std::function<void(const std::wstring&)>& visit);

// The MD5 by which an instance's document knows the key it was made with, as the key manager gives
// it.
std::string keyMd5(const std::array<uint8_t, 16>& key, const std::array<uint8_t, 16>& iv);

}  // namespace dorvo
