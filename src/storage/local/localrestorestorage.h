// Brings a backup back from a folder. docs/formats/local-storage.md says how it lies there.
//
// An ItemFetcher brings each file's package into the job's temporary folder and decodes it; it is
// checked against its MD5 before, so that a damaged package (13) touches nothing. The activity
// record is written on the job's worker thread only; the stop signal comes from others.
//
// Besides the errors of RestoreStorage: 10070 for any failure while the folder is gone;
// errorKeyForeign from start() when the backup was made with another key; 1168 when there is no
// such backup, 5023 when it was never completed, 2 for an item that it does not hold, 13 for
// whatever is damaged.
#pragma once

#include <windows.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "base/interrupter.h"
#include "base/md5.h"
#include "record/itemprogress.h"
#include "storage/itemfetcher.h"
#include "storage/local/localplace.h"
#include "storage/restorestorage.h"
#include "storage/storagetask.h"

namespace dorvo {

class LocalIndexCursor;
class LocalPackages;

class LocalRestoreStorage : public RestoreStorage, public interrupter, private BlockSource {
public:
    // The location is the folder of all local backups.
    LocalRestoreStorage(const std::wstring& location, RestoreTask task);
    ~LocalRestoreStorage() override;

    bool start() override;
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override;
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override;
    // Nothing is kept in the folder: the document lies in the job's directory.
    bool end(const json_spirit::Object& history) override;

    void advanced(uint64_t bytes) override { progress_.encoded(bytes); }

private:
    bool open();
    bool valid(const wchar_t* original, const wchar_t* target) const;
    bool findRecord(const std::wstring& original, LocalRecord::Kind kind, LocalRecord& record);
    bool lookUp(FetchedItem& item);
    bool itemFailed(const char* action, const std::string& name) const;

    bool find(FetchedItem&) override { return true; }  // it was looked up before
    bool begin(const FetchedItem& item, HANDLE package, uint64_t& kept) override;
    bool get(const FetchedItem& item, uint64_t offset, std::span<const std::byte>& block) override;
    bool check(const FetchedItem& item) override;
    void failed(FetchStep step, const FetchedItem& item) const override;

    const RestoreTask task_;
    ItemProgress progress_;  // the way to write to the record
    const LocalPlace place_;
    std::wstring temporary_;                   // the folder of the packages on their way
    std::unique_ptr<LocalIndexCursor> index_;  // from start() on
    std::unique_ptr<LocalPackages> packages_;  // the same
    LocalRecord record_;                       // of the file that is restored,
    HANDLE from_ = INVALID_HANDLE_VALUE;       // its packages' file, borrowed from packages_,
    mutable bool damaged_ = false;             // its package is, as far as that is known
    Md5 digest_;                               // and of its package, as far as it is here
    std::vector<std::byte> block_;
    ItemFetcher fetcher_;
};

}  // namespace dorvo
