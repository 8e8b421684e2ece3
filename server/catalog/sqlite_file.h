// A file's row, sealed.
//
// The seal is a digest of what must not change unnoticed: the path and all that is known of the
// file, but not which backup it is of nor how much of it has come. A page of the database that the
// disk has spoilt may be well-formed all the same; then a seal is broken.
#pragma once

#include <cstdint>
#include <string_view>

#include "catalog/instances.h"
#include "catalog/sqlite.h"

namespace dorvo {

int64_t sqliteSeal(std::string_view path, const StoredFile& file);

// Out of a row whose columns are those of SqliteStatements::selectFile.
StoredFile sqliteFile(const Rows& rows);

}  // namespace dorvo
