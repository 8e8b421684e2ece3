// A file's attribute data in requests and answers.
#pragma once

#include <boost/json/fwd.hpp>

#include "catalog/catalog.h"

namespace dorvo {

// Throws ServiceError 400 unless all nine numbers are there.
FileAttributes readAttributes(const boost::json::object& attri);
boost::json::object writeAttributes(const FileAttributes& attributes);

bool isFolder(const FileAttributes& attributes);
int64_t lastWriteTime(const FileAttributes& attributes);

// The word for a stored file's kind.
std::string_view typeText(FileKind kind);

}  // namespace dorvo
