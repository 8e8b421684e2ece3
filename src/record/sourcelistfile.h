// Makes a source list so that what lies under its name is whole at any time.
#pragma once

#include <functional>
#include <string>

#include "record/jobactsrcwriter.h"

namespace dorvo {

// Lets `fill` write the records, the brackets around them excepted, into a file of another name,
// brings it onto the disk and renames it to `path`, whatever was there before. False, with the last
// error and no trace left, when any of it fails: `fill` answers false with the last error, or
// throws. A failed write is logged.
bool writeSourceListFile(const std::wstring& path,
                         const std::function<bool(JobHistorySourceWriter& writer)>& fill);

}  // namespace dorvo
