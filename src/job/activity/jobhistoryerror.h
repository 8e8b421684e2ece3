// The items that failed in one run: a JSON array in the job's history.
//
// A run saves it before its position moves past a failed item, so that a resumed run knows what an
// interrupted one left out. One thread. docs/formats/history.md has the file.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"
#include "settings/jsonstorage.h"

namespace dorvo {

class DORVO_JOB_API JobHistoryError : public JSONArrayStorage {
public:
    // Reads the document when the file (UTF-8 path) is there.
    explicit JobHistoryError(const std::string& path);
    ~JobHistoryError() override;
    JobHistoryError(const JobHistoryError&) = delete;
    JobHistoryError& operator=(const JobHistoryError&) = delete;

    // Appends an item; the same path may stand there several times. False for a null or empty path.
    bool add(const wchar_t* path, uint32_t code, const char* reason);

    // Writes the last item behind those that the file holds, which are the ones before it; costs
    // the same however many they are. A file that does not end like one of ours is written anew.
    bool saveLast();

    // Forgets all items, for save() to write.
    void clear() { values_.clear(); }

private:
    bool appendLast() const;
};

}  // namespace dorvo
