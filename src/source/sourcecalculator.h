// Counts what a walk reports. A walker of one's own derives from it and calls its processFile.
#pragma once

#include <cstdint>

#include "source/sourcewalker.h"

namespace dorvo {

class DORVO_JOB_API SourceCalculator : public SourceWalker {
public:
    uint32_t directoryCount() const { return directories_; }
    uint32_t fileCount() const { return files_; }
    uint64_t fileSize() const { return size_; }  // bytes of the files

protected:
    void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) override;

private:
    uint32_t directories_ = 0;
    uint32_t files_ = 0;
    uint64_t size_ = 0;
};

}  // namespace dorvo
