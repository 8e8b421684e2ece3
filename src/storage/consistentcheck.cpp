#include "storage/consistentcheck.h"

#include <windows.h>

#include <string>

#include "base/files.h"
#include "base/handle.h"
#include "base/paths.h"

namespace dorvo {

int consistentcheckfreeall() {
    std::wstring root;
    if (!dataDirectory(root)) {
        return 0;
    }
    const std::wstring directory = root + L"\\consistentcheck\\";
    WIN32_FIND_DATAW entry;
    const FindHandle find(FindFirstFileW((directory + L"\\*").c_str(), &entry));
    if (!find) {
        return 0;
    }
    bool emptied = true;
    do {
        const std::wstring name = entry.cFileName;
        if (name != L"." && name != L".." && !rm_rf(directory + name, true)) {
            emptied = false;
        }
    } while (FindNextFileW(find.get(), &entry) != 0);
    return emptied ? 1 : 0;
}

}  // namespace dorvo
