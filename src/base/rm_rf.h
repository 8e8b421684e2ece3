// Deletes what lies in a folder, and the folder itself when `self` is true.
//
// A path that names a file deletes the file. Links and other reparse points are removed, never
// entered; read-only entries are deleted too. Goes on past what cannot be deleted; true when
// nothing was left over. A path that does not exist is no failure.
#pragma once

#include <string>

namespace dorvo {

bool rm_rf(const std::wstring& path, bool self);

}  // namespace dorvo
