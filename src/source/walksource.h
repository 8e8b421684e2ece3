// Walks sources depth first, each directory before its content, and reports every entry that the
// filter lets through.
//
// The filter is asked with the full path of a source and the bare name of everything below. It
// never keeps an ordinary directory from being reported and entered; links are never entered. A
// source that cannot be found is skipped in silence, a directory that cannot be listed is logged.
// Order is the file system's. The filter may be null: everything passes. The walker may be null:
// nothing is done.
#pragma once

#include <string>
#include <vector>

#include "base/api.h"

namespace dorvo {

class FilterPolicy;
class SourceWalker;

extern "C" DORVO_JOB_API void walkSource(const std::vector<std::wstring>& sources,
                                         FilterPolicy* filter, SourceWalker* walker);

}  // namespace dorvo
