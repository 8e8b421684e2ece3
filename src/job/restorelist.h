// Produces a restore's source list: lists the wanted sources of a backup, page by page, and writes
// what there is to bring back.
//
// Memory does not grow with the number of items. Records carry item numbers from 1, in the order in
// which the catalog lists, a directory before what lies in it. The list is written under another
// name and renamed when it is complete: a list that is there is whole, but may be an older run's,
// so whoever begins a new run deletes it.
//
// An object generates one list. It runs on the caller's thread and blocks until the list is there.
#pragma once

#include <windows.h>

#include <cstdint>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "base/interrupter.h"
#include "record/jobactsrcwriter.h"
#include "source/sourcewalk.h"
#include "storage/restorecatalog.h"

namespace dorvo {

class RestoreListGenerator : private SourceCalculator {
public:
    struct Options {
        RestoreCatalog* catalog = nullptr;  // borrowed
        const interrupter* stop = nullptr;  // borrowed, asked between pages; may be null
        // Told of what the restore would lack: a wanted source that the backup does not hold
        // (ERROR_FILE_NOT_FOUND), an item that no record can hold (206), and once "\\" where the
        // storage has lost items of the backup's list (410 marked): nobody knows which. On the
        // calling thread.
        std::function<void(const std::wstring& path, DWORD error)> failedItem = {};
    };

    explicit RestoreListGenerator(Options options) : options_(std::move(options)) {}

    // Writes the list of the wanted sources to `path`; no sources: of all that the backup holds.
    // One below another is listed once. False, with no list left under that name that was not there
    // before: the last error says why, 1223 when the interrupter said stop, 13 for a catalog that
    // answers what it was not asked or never comes to its end.
    bool generate(const std::wstring& path, const std::vector<std::wstring>& sources);

    // What the list holds.
    const SourceCalculator& totals() const { return *this; }

private:
    bool writeSource(JobHistorySourceWriter& writer, const std::wstring& source);
    bool writePage(JobHistorySourceWriter& writer, const std::wstring& source,
                   const RestoreCatalog::Page& page);
    bool nextPage(const std::wstring& source, RestoreCatalog::Page& page) const;
    void reportFailed(const std::wstring& path, DWORD error) const;

    Options options_;
    uint32_t itemNumber_ = 0;  // of the last record
    uint64_t missing_ = 0;     // of the backup's list, as far as the storage has said
};

}  // namespace dorvo
