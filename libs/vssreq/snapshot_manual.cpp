// Takes a snapshot of real volumes, lists their roots through it and ends it again: what no machine
// without the shadow copy service can show. Run by hand as administrator; see
// docs/windows-only.md.
//
//     snapshot_manual C:\ [D:\ ...]
#include <windows.h>

#include <objbase.h>

#include <cstdio>
#include <string>
#include <vector>

#include "vssreq/vssrequester.h"

namespace {

int listRoot(const dorvo::SnapshotVolume& volume) {
    std::printf("%ls\n  device  %ls\n  created %lld\n", volume.volumePath.c_str(),
                volume.shadowPath.c_str(), static_cast<long long>(volume.creationTimestamp));
    WIN32_FILE_ATTRIBUTE_DATA root{};
    if (GetFileAttributesExW(volume.shadowPath.c_str(), GetFileExInfoStandard, &root) == 0) {
        std::printf("  the root has no attributes: error %lu\n", GetLastError());
        return 1;
    }
    WIN32_FIND_DATAW entry;
    HANDLE search = FindFirstFileW((volume.shadowPath + L"*").c_str(), &entry);
    if (search == INVALID_HANDLE_VALUE) {
        std::printf("  the root cannot be listed: error %lu\n", GetLastError());
        return 1;
    }
    int count = 0;
    do {
        ++count;
    } while (FindNextFileW(search, &entry) != 0);
    FindClose(search);
    std::printf("  entries %d\n", count);
    return 0;
}

int run(const std::vector<std::wstring>& volumes) {
    dorvo::VSSRequester requester;
    if (!requester.startBackup(&volumes, dorvo::VSSRequester::copy, true)) {
        const DWORD error = GetLastError();
        std::printf("no snapshot: %s failed with 0x%08lx\n", requester.step(), error);
        return 1;
    }
    int failures = requester.volumeCount() == static_cast<int>(volumes.size()) ? 0 : 1;
    std::wstring device;
    for (int i = 0; i < requester.volumeCount(); ++i) {
        device = requester.volume(i).shadowPath;
        failures += listRoot(requester.volume(i));
    }
    if (!requester.endBackup()) {
        std::printf("the backup could not be ended: error 0x%08lx\n", GetLastError());
        return 1;
    }
    if (!device.empty() && GetFileAttributesW(device.c_str()) != INVALID_FILE_ATTRIBUTES) {
        std::printf("the snapshot is still there\n");
        return 1;
    }
    std::printf("%d failures\n", failures);
    return failures == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 2) {
        std::puts("usage: snapshot_manual VOLUME\\ ...");
        return 2;
    }
    std::vector<std::wstring> volumes;
    for (int i = 1; i < argc; ++i) {
        const std::string text = argv[i];
        volumes.emplace_back(text.begin(), text.end());
    }
    // The way a job's thread does it.
    if (FAILED(CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED))) {
        return 1;
    }
    const int status = run(volumes);
    CoUninitialize();
    return status;
}
