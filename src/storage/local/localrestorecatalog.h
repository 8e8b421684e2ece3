// What a completed backup in a folder holds.
//
// The folders come first, then the files, both in the order of the index. The last error of a
// failure: 10070 while the folder is gone, 1168 when there is no such backup, 5023 when it was
// never completed, 13 when it is damaged, 87 for an `after` that is no page's `next`.
#pragma once

#include <windows.h>

#include <memory>
#include <string>

#include "base/interrupter.h"
#include "storage/local/localplace.h"
#include "storage/restorecatalog.h"

namespace dorvo {

class LocalIndexReader;

class LocalRestoreCatalog : public RestoreCatalog {
public:
    // The stop signal is borrowed; null: nothing breaks a listing off.
    LocalRestoreCatalog(LocalPlace place, std::string instanceId, HANDLE stop);
    ~LocalRestoreCatalog() override;
    LocalRestoreCatalog(const LocalRestoreCatalog&) = delete;
    LocalRestoreCatalog& operator=(const LocalRestoreCatalog&) = delete;

    bool list(const std::wstring& path, const std::string& after, Page& page) override;

private:
    bool open();
    bool read(const std::wstring& path, const std::string& after, Page& page);

    const LocalPlace place_;
    const std::string instanceId_;
    interrupter stop_;
    std::unique_ptr<LocalIndexReader> index_;  // from the first page on
};

}  // namespace dorvo
