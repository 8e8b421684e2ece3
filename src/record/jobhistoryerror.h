// The items that failed in one run: a JSON array in the job's history.
//
// A run saves what is new before its position moves past a failed item, so that a resumed run knows
// what an interrupted one left out: behind the others in a journal, which save() makes part of the
// document. The document is replaced as a whole and is never half written. One thread.
// docs/formats/history.md has both files.
#pragma once

#include <cstdint>
#include <string>

#include "base/api.h"
#include "record/jsonjournal.h"
#include "settings/jsonstorage.h"

namespace dorvo {

class DORVO_JOB_API JobHistoryError : public JSONArrayStorage {
public:
    // Reads the document (UTF-8 path) and its journal, those that are there.
    explicit JobHistoryError(const std::string& path);
    ~JobHistoryError() override;
    JobHistoryError(const JobHistoryError&) = delete;
    JobHistoryError& operator=(const JobHistoryError&) = delete;

    // Why a file that is there could not be read; 0 when there is none such. Both files then stay
    // as they are until clear(), and nothing is saved.
    DWORD readError() const { return readError_; }

    // Appends an item; the same path may stand there several times. False for a null or empty path.
    bool add(const wchar_t* path, uint32_t code, const char* reason);

    // Puts the items that no file holds yet on the disk; costs the same however many others there
    // are. False with the last error.
    bool saveNew();
    // Forgets those that no file holds yet.
    void forgetNew() { values_.resize(saved_); }
    // Makes the document hold all items, also when there are none. False with the last error.
    bool save();

    // Forgets all items, those on the disk too. False with the last error, with nothing forgotten
    // in memory.
    bool clear();

private:
    bool read();
    bool writable() const;
    bool replaceDocument();

    JsonJournal journal_;
    DWORD readError_ = ERROR_SUCCESS;
    bool documented_ = false;  // the document holds all items
    size_t saved_ = 0;         // the items that are in one of the files
};

}  // namespace dorvo
