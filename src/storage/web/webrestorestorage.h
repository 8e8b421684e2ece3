// Brings a backup back from the web storage service, over HTTP with the user's session.
//
// An ItemFetcher receives and decodes the files and counts; this is where their packages come from.
// The activity record is written on the job's worker thread only; the stop signal comes from
// others.
#pragma once

#include <windows.h>

#include <functional>
#include <span>
#include <string>

#include "base/log.h"
#include "storage/itemfetcher.h"
#include "storage/restorestorage.h"
#include "storage/web/web_bodies.h"
#include "storage/web/web_requests.h"
#include "storage/web/webrun.h"

namespace dorvo {

// A block travels behind its MD5, as text.
constexpr uint32_t md5TextSize = 32;

class WebRestoreStorage : public RestoreStorage, public WebRun, private BlockSource {
public:
    WebRestoreStorage(WebPlace place, RestoreTask task);

    bool start() override;
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override;
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override;
    bool end(const json_spirit::Object& history) override;

private:
    using Download = Command_To_Server<Download_Data_Request, Response_T<Download_Data_Type>>;

    // Of the job: its id and name and the code, or the status and its text.
    using BrokenLine = LogText<std::string, std::string, int>;
    using RefusedLine = LogText<std::string, std::string, int, std::string>;

    // An exchange about the job.
    bool submit(HTTP_Command& command, BrokenLine broken, RefusedLine refused);
    // False without a word in the log.
    bool get_file_info(const StoredPath& path, bool directory, StoredItem& item);

    bool valid(const std::string& original, const std::string& target) const;
    bool dressDirectory(const std::string& name, const std::wstring& target,
                        const std::string& place);

    bool find(FetchedItem& item) override;
    bool begin(const FetchedItem& item, HANDLE package, uint64_t& kept) override;
    bool get(const FetchedItem& item, uint64_t offset, std::span<const std::byte>& block) override;
    // The service's own digests are compared there, the package's padding when it is decoded.
    bool check(const FetchedItem&) override { return true; }
    void failed(FetchStep step, const FetchedItem& item) const override;

    // Of a directory: true when the job must stop; the last error is then 1223.
    bool stopped(LogText<std::string> words, const std::string& name) const;
    // What a failed step of a directory leaves behind. While the job must stop it counts as
    // cancelled, whatever its error is; otherwise `logFailure` gets the error's code. Always false.
    bool stepFailed(LogText<std::string> cancelled, const std::string& name,
                    const std::function<void(int)>& logFailure) const;

    const RestoreTask task_;
    std::string backupId_;    // the run that is restored; empty when its id is none
    std::string restoreId_;   // the service's name for this restore; empty before start()
    std::wstring temporary_;  // the folder of the packages
    Download download_{"Download Data", {StoredPath(), 0}};  // keeps its memory from block to block
    StoredPath stored_;                                      // of the file that is restored
    ItemFetcher fetcher_;
};

}  // namespace dorvo
