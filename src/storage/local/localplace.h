// Where the backups of one job of one machine lie in a folder:
// <location>\<machine>\<job id>\<instance id>\.
//
// A value; any thread. False leaves the last error.
#pragma once

#include <windows.h>

#include <array>
#include <cstdint>
#include <functional>
#include <string>

#include "storage/local/localinstancedocument.h"

namespace dorvo {

class LocalPlace {
public:
    // The names may be anything; check() judges them.
    LocalPlace(std::wstring location, std::string machine, std::string jobId);

    // True when the names can stand in a path and the location is there. 87, 10070; logged.
    bool check() const;

    const std::wstring& location() const { return location_; }
    // The folder of an instance whose id is a UUID's text.
    std::wstring instance(const std::string& id) const;
    std::wstring packages(const std::string& id) const { return instance(id) + L"\\packages"; }
    std::wstring index(const std::string& id) const { return instance(id) + L"\\index"; }
    std::wstring awaited(const std::string& id) const { return instance(id) + L"\\awaited"; }

    // The instance's document. 2 or 3 when there is none, 13 when it is none or another's.
    bool load(const std::string& id, LocalInstanceDocument& document) const;
    // The document of a completed instance for reading it back: 1168, 5023, 13; logged.
    bool loadCompleted(const std::string& id, LocalInstanceDocument& document) const;
    // On the disk when true comes back; the old document stays whole until then.
    bool save(const LocalInstanceDocument& document) const;

    // Calls for each instance that has a document, in no order. False when the folder cannot be
    // listed; a folder that is not there holds none.
    bool each(const std::function<void(const LocalInstanceDocument&)>& visit) const;
    // The last completed instance but `except`; `id` is empty when there is none.
    bool lastCompleted(const std::string& except, LocalInstanceDocument& document) const;

    // After a failure: any error but 1223 becomes 10070 while the location is gone. Always false.
    bool failed() const;

private:
    std::wstring location_;
    std::string machine_;
    std::string jobId_;
    std::wstring folder_;  // of the job's instances
};

// A full disk will have room again, a folder that is gone will come back: 10070 for the errors that
// say so of a write into the location. Always false.
bool writeFailed(const std::wstring& location);

// The MD5 by which an instance's document knows the key it was made with, as the key manager gives
// it.
std::string keyMd5(const std::array<uint8_t, 16>& key, const std::array<uint8_t, 16>& iv);

}  // namespace dorvo
