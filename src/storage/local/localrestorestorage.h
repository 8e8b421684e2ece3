// Brings a backup back from a folder. docs/formats/local-storage.md says how it lies there.
//
// Each file's package is copied into the job's temporary folder, checked against its MD5, and then
// decoded into its place, so that a damaged package (13) touches nothing. The activity record says
// how many of its blocks are there, so that the next run goes on behind them; recordError() deletes
// what came of the current item. The record is written on the job's worker thread only; the stop
// signal comes from others.
//
// Besides the errors of RestoreStorage: 10070 for any failure while the folder is gone;
// errorKeyForeign from start() when the backup was made with another key; 1168 when there is no
// such backup, 5023 when it was never completed, 2 for an item that it does not hold, 13 for
// whatever is damaged.
#pragma once

#include <windows.h>

#include <array>
#include <memory>
#include <string>

#include "base/interrupter.h"
#include "record/itemprogress.h"
#include "source/restoretransformation.h"
#include "storage/local/localplace.h"
#include "storage/placingrecord.h"
#include "storage/restorestorage.h"
#include "storage/storagetask.h"

namespace dorvo {

class LocalIndexCursor;
class LocalPackages;
class RestoreTarget;

class LocalRestoreStorage : public RestoreStorage, public interrupter {
public:
    // The location is the folder of all local backups.
    LocalRestoreStorage(const std::wstring& location, RestoreTask task);
    ~LocalRestoreStorage() override;

    bool start() override;
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override;
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    // Nothing is kept in the folder: the document lies in the job's directory.
    bool end(const json_spirit::Object& history) override;

    void advanced(uint64_t bytes) override { progress_.encoded(bytes); }

private:
    bool open();
    bool valid(const wchar_t* original, const wchar_t* target) const;
    bool find(const std::wstring& original, LocalRecord::Kind kind, LocalRecord& record);
    bool failed(const char* action, const std::string& name) const;
    bool hasRoom(const LocalRecord& record, const RestoreTarget& file) const;
    void claimPackage(uint64_t size, const std::wstring& package);
    bool fetch(const LocalRecord& record, const std::wstring& package);
    bool copy(const LocalRecord& record, HANDLE from, HANDLE to, uint64_t kept, bool& whole);
    bool put(const LocalRecord& record, const std::wstring& package, RestoreTarget& file,
             bool replace);

    const RestoreTask task_;
    const JobActivity* activity_;  // borrowed
    ItemProgress progress_;        // the way to write there
    const LocalPlace place_;
    std::wstring temporary_;  // the folder of the packages on their way
    RestoreTransformation plain_;
    RestoreTransformation compressed_;
    std::unique_ptr<LocalIndexCursor> index_;  // from start() on
    std::unique_ptr<LocalPackages> packages_;  // the same
};

}  // namespace dorvo
