#include "source/sourcecalculator.h"

namespace dorvo {

void SourceCalculator::processFile(const wchar_t*, const WIN32_FILE_ATTRIBUTE_DATA& data) {
    if ((data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
        ++directories_;
        return;
    }
    ++files_;
    size_ += uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
}

}  // namespace dorvo
