#include "common/files.h"

#include <fcntl.h>
#include <sys/stat.h>

namespace dorvo {

namespace fs = std::filesystem;

bool makeFolder(const fs::path& folder) {
    if (::mkdir(folder.c_str(), 0777) == 0) {
        return true;
    }
    if (errno != EEXIST) {
        failAt("cannot make", folder);
    }
    return false;
}

void syncFolder(const fs::path& folder) {
    const FileDescriptor fd(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!fd || ::fsync(fd.get()) != 0) {
        failAt("cannot sync", folder);
    }
}

}  // namespace dorvo
