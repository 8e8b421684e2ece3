// What making a package and unpacking one have in common: the two files, and what became of them.
#pragma once

#include <functional>
#include <string>

#include "base/log.h"
#include "source/handlestreams.h"

namespace dorvo {

// Each of a path and a reason.
struct TransformWords {
    using Line = LogText<std::string, std::string>;
    Line sourceNotOpened;
    Line targetNotOpened;
    Line failed;
};

// Opens both files and has `pump` carry one into the other; `finish`, where there is one, gets the
// target when all of it is written. What `pump` throws, or a source that is not read to its end, is
// a failure. False is logged and leaves the thread's last error, true leaves 0.
bool transformFile(const wchar_t* source, const wchar_t* target, interrupter* stop,
                   const TransformWords& words,
                   const std::function<void(std::istream& in, std::ostream& out)>& pump,
                   const std::function<void(HANDLE target)>& finish = nullptr);

}  // namespace dorvo
