// What a completed backup in a folder holds.
//
// The folders come first, then the files, both in the order of the index. The last error of a
// failure: 10070 while the folder is gone, 1168 when there is no such backup, 5023 when it was
// never completed, 13 when it is damaged, 87 for an `after` that is no page's `next`.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "base/api.h"
#include "base/interrupter.h"
#include "storage/local/localplace.h"
#include "storage/restorecatalog.h"

namespace dorvo {

class LocalIndexReader;

class DORVO_JOB_API LocalRestoreCatalog : public RestoreCatalog {
public:
    struct Run {
        std::wstring location;  // the folder of all local backups
        std::string machine;
        std::string jobDefinitionId;  // of the backup job
        std::string jobInstanceId;    // of the backup job's run
        HANDLE stop = nullptr;  // manual-reset event, borrowed; null: nothing breaks a listing off
    };

    explicit LocalRestoreCatalog(Run run);
    ~LocalRestoreCatalog() override;
    LocalRestoreCatalog(const LocalRestoreCatalog&) = delete;
    LocalRestoreCatalog& operator=(const LocalRestoreCatalog&) = delete;

    bool list(const std::wstring& path, const std::string& after, Page& page) override;

private:
    bool open();
    bool read(const std::wstring& path, const std::string& after, Page& page);

    Run run_;
    interrupter stop_;
    LocalPlace place_;
    std::unique_ptr<LocalIndexReader> index_;  // from the first page on
};

}  // namespace dorvo
