// Brings catalog and packages together at the start of the service.
//
// Either may be missing, or be a copy from another time, and what the one does not know is all that
// is left of a backup in the other. So the start refuses what it cannot tell apart from a mistake,
// before it has changed anything; and bytes that the catalog does not know are moved aside, where
// an operator finds them, never deleted.
#pragma once

#include <filesystem>
#include <functional>
#include <string>
#include <string_view>

#include "catalog/sqlite_catalog.h"
#include "packages/file_block_store.h"

namespace dorvo {

// Throws std::exception with a sentence when the database is damaged, or is missing beside
// packages. Is to be called before the catalog is opened, which would make a new one or change a
// damaged one.
void requireSoundCatalog(const std::filesystem::path& catalog, const FileBlockStore& blocks);

// Begins service with the packages that are there, and makes their folder for a new catalog. A line
// to the log for everything out of the ordinary. Throws std::exception with a sentence when the
// packages are not the catalog's. May be called again after it has thrown DiskFull.
void reconcile(SqliteCatalog& catalog, FileBlockStore& blocks, std::string_view boot,
               const std::function<void(const std::string&)>& log);

}  // namespace dorvo
