// Takes snapshots of volumes for a backup, through the volume shadow copy service.
//
// One backup at a time, on one thread that has COM initialised and keeps it so until endBackup.
// Only setEndEvent may come from other threads. A machine without the service gets an error from
// startBackup, nothing worse. Snapshots last until endBackup or the end of the object or process.
#pragma once

#include <windows.h>

#include <algorithm>
#include <iterator>
#include <memory>
#include <string>
#include <vector>

#include "vssreq/export.h"
#include "vssreq/snapshotprovider.h"

namespace dorvo {

class DORVO_VSSREQ_API VSSRequester {
public:
    // The kind of backup that writers are told of, as the service numbers them.
    enum BackupType {
        undefined = 0,
        full = 1,
        incremental = 2,
        differential = 3,
        log = 4,
        copy = 5,
        other = 6
    };

    // Over the machine's shadow copy service.
    VSSRequester();
    explicit VSSRequester(std::unique_ptr<SnapshotProvider> provider);
    ~VSSRequester();
    VSSRequester(const VSSRequester&) = delete;
    VSSRequester& operator=(const VSSRequester&) = delete;

    // Begins a backup of the volumes (mount points with a trailing backslash) and, when `now` is
    // set, makes the snapshots. Null or empty: there is nothing to snapshot, which is a success. An
    // older backup is ended first. False, with no backup begun: the last error is a Win32 code or
    // an HRESULT, 87 for an unknown backup type, 1223 after setEndEvent. Each of the
    // service's steps is waited for, five minutes at most.
    bool startBackup(const std::vector<std::wstring>* volumes, int backupType, bool now);
    // Makes the snapshots of a backup that was begun without; fails like startBackup.
    bool makeSnapshot();
    // Ends the backup and deletes its snapshots; true when there was none. The volumes are gone in
    // any case.
    bool endBackup();
    // Makes a startBackup or makeSnapshot give up: the one that is under way or, while no backup
    // has begun, the next one. The one after that starts afresh. Any thread; does not wait.
    void setEndEvent();

    // The snapshots that were made; fewer than the volumes asked for when some are away, or the
    // service has said of some that they can have none. An answer that fails is a failure of the
    // start.
    int volumeCount() const;
    // Index below volumeCount(); the reference lasts until the next start or end.
    const SnapshotVolume& volume(int index) const;
    // Whether the last startBackup has left the volume out because there was nothing at its path: a
    // disk that was unplugged, an empty drive.
    bool wasAway(const std::wstring& volume) const;
    // Whether an error of startBackup or makeSnapshot says that the service is busy, with another
    // snapshot or with holding writes: another try may succeed.
    static constexpr bool isBusy(DWORD error) {
        constexpr DWORD codes[] = {
            0x80042313,  // flushing writes took too long
            0x80042314,  // holding writes took too long
            0x80042316,  // another snapshot set is being made
            0x80042328,  // the file systems' transactions took too long
            0x800423F2,  // a writer took too long
            0x800423F3,  // a writer says that another try may succeed
        };
        return std::find(std::begin(codes), std::end(codes), error) != std::end(codes);
    }
    // The service's call that failed last, for a log line; empty before.
    const char* step() const;
    // The volume that it was about; empty when it was about all of them.
    const std::wstring& failedVolume() const { return failedVolume_; }

private:
    HRESULT prepare(const std::vector<std::wstring>& volumes, int backupType);
    bool fail(HRESULT result);

    std::unique_ptr<SnapshotProvider> provider_;
    std::vector<SnapshotVolume> volumes_;
    std::vector<std::wstring> away_;
    HANDLE end_;             // manual-reset event, owned
    bool begun_ = false;     // the provider has to be told of an end
    bool prepared_ = false;  // there is a set to make
    const char* step_ = "";
    std::wstring failedVolume_;
};

}  // namespace dorvo
