// The summary of one run: a JSON object in the job's history.
//
// Filled by its setters while the run lasts; the destructor saves what was not saved. One thread.
// docs/formats/history.md has the file.
#pragma once

#include <windows.h>

#include <cstdint>
#include <string>

#include "base/api.h"
#include "settings/jsonstorage.h"

namespace dorvo {

class DORVO_JOB_API JobHistoryInfo : public JSONObjectStorage {
public:
    // Reads the document when the file (UTF-8 path) is there: a resumed run goes on with it.
    explicit JobHistoryInfo(const std::string& path);
    ~JobHistoryInfo() override;
    JobHistoryInfo(const JobHistoryInfo&) = delete;
    JobHistoryInfo& operator=(const JobHistoryInfo&) = delete;

    bool save();

    // Each replaces an earlier value. False, with nothing changed, for a null or empty instance id
    // or another null text, and for a time outside the calendar.
    bool instanceId(const char* id);
    bool type(const char* type);
    bool starttime(const FILETIME& utc);
    bool endtime(const FILETIME& utc);
    bool totalsize(int64_t bytes);
    bool filescount(int64_t files);
    bool state(const char* state);
    bool speed(int32_t speed);

    // "2011-3-4 05:06:07"; empty for a time outside the calendar.
    static std::string timeText(const FILETIME& utc);

private:
    bool set(const char* key, json_spirit::Value value);
    bool setTime(const char* key, const FILETIME& utc);

    bool changed_ = false;  // since the document was read or saved
};

}  // namespace dorvo
