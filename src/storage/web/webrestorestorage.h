// Brings a backup back from the web storage service, over HTTP with the user's session.
//
// Each file is asked for, its package is received in blocks of 128 KiB into the job's temporary
// folder, and then decoded into its place. The activity record says at any time how far the current
// item's package has come, so that the next run goes on there: what is on record of an offset
// belongs to the item whose number is on record, and to a package of the size on record. The
// record is written on the job's worker thread only; the stop signal comes from others.
//
// A package stays in the temporary folder while its item may be tried again: the job empties that
// folder only before a new run. recordError() deletes what came of the current item.
#pragma once

#include <windows.h>

#include <array>
#include <functional>
#include <string>
#include <variant>

#include "base/handle.h"
#include "base/log.h"
#include "record/itemprogress.h"
#include "source/restoretransformation.h"
#include "storage/placingrecord.h"
#include "storage/restorestorage.h"
#include "storage/storagetask.h"
#include "storage/web/patient_interrupter.h"
#include "storage/web/web_exchange.h"
#include "storage/web/web_requests.h"
#include "storage/web/web_session.h"
#include "storage/web/webplace.h"

namespace dorvo {

class WebRestoreStorage : public RestoreStorage, public patient_interrupter {
public:
    WebRestoreStorage(WebPlace place, RestoreTask task);

    bool start() override;
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override;
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override;
    bool recordError(const wchar_t* path, DWORD code, const std::string& reason) override;
    bool end(const json_spirit::Object& history) override;

private:
    struct File;
    using Download = Command_To_Server<Download_Data_Request, Response_T<Download_Data_Type>>;

    // Of the job: its id and name and the code, or the status and its text.
    using BrokenLine = LogText<std::string, std::string, int>;
    using RefusedLine = LogText<std::string, std::string, int, std::string>;
    // Of a stopped item: its name, and the offset where the text tells it.
    using StoppedItem = LogText<std::string>;
    using StoppedAt = LogText<std::string, uint64_t>;
    using StoppedLine = std::variant<StoppedItem, StoppedAt>;

    bool aimAtServer();
    Exchanged exchange(HTTP_Command& command);
    bool submit(HTTP_Command& command, BrokenLine broken, RefusedLine refused);
    // False without a word in the log.
    bool get_file_info(const StoredPath& path, bool directory, StoredItem& item);

    bool valid(const std::string& original, const std::string& target) const;
    bool dressDirectory(const std::string& name, const std::wstring& target,
                        const std::string& place);

    bool restore(File& file, bool replace);
    bool makeParents(File& file) const;
    bool askForFile(File& file);
    bool hasRoom(const File& file) const;
    bool fetch(File& file);
    bool receive(const File& file, uint64_t& kept);
    FileHandle openPackage(const File& file) const;
    void seekToOffset(HANDLE package);
    bool downloadBlocks(const File& file, HANDLE package);
    bool download_block(const File& file, HANDLE package, uint64_t offset);
    bool decode(File& file);
    void dress(File& file) const;
    bool place(File& file, bool replace) const;
    void claimPackage(uint64_t size);

    // True when the job must stop: the last error is then 1223.
    bool stopped(StoppedLine words, const std::string& name) const;
    // What a failed step leaves behind. While the job must stop it counts as cancelled, whatever
    // its error is; otherwise `logFailure` gets the error's code. Always false.
    bool stepFailed(StoppedLine cancelled, const std::string& name,
                    const std::function<void(int)>& logFailure) const;

    const WebPlace place_;
    const RestoreTask task_;
    const JobActivity* activity_;  // borrowed
    ItemProgress progress_;        // the way to write there
    std::string backupId_;         // the run that is restored; empty when its id is none
    std::string restoreId_;        // the service's name for this restore; empty before start()
    std::wstring temporary_;       // the folder of the packages
    Web_Session session_;
    // Keeps its memory from block to block.
    Download download_{"Download Data", {StoredPath(), 0}};
    RestoreTransformation plain_;
    RestoreTransformation compressed_;
};

}  // namespace dorvo
