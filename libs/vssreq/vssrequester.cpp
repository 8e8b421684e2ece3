#include "vssreq/vssrequester.h"

#include "vssreq/shadowcopyprovider.h"

namespace dorvo {
namespace {

// A failure of Windows itself is told by its own code, everything else by the HRESULT.
DWORD toLastError(HRESULT result) {
    return HRESULT_FACILITY(result) == FACILITY_WIN32 ? static_cast<DWORD>(HRESULT_CODE(result))
                                                      : static_cast<DWORD>(result);
}

bool isAway(const std::wstring& volume) {
    // A disk may be mounted at a path that only its long form holds.
    const std::wstring path = volume.starts_with(L"\\\\") ? volume : L"\\\\?\\" + volume;
    // A root that may not be looked at is one all the same.
    return GetFileAttributesW(path.c_str()) == INVALID_FILE_ATTRIBUTES &&
           GetLastError() != ERROR_ACCESS_DENIED;
}

}  // namespace

VSSRequester::VSSRequester() : VSSRequester(makeShadowCopyProvider()) {}

VSSRequester::VSSRequester(std::unique_ptr<SnapshotProvider> provider)
    : provider_(std::move(provider)), end_(CreateEventW(nullptr, TRUE, FALSE, nullptr)) {}

VSSRequester::~VSSRequester() {
    endBackup();
    if (end_ != nullptr) {
        CloseHandle(end_);
    }
}

bool VSSRequester::startBackup(const std::vector<std::wstring>* volumes, int backupType, bool now) {
    endBackup();
    if (end_ == nullptr) {
        SetLastError(ERROR_NOT_ENOUGH_MEMORY);
        return false;
    }
    if (backupType < undefined || backupType > other) {
        SetLastError(ERROR_INVALID_PARAMETER);
        return false;
    }
    if (volumes == nullptr || volumes->empty()) {
        return true;
    }
    // An end that was asked for just before counts: whoever asked could not know how far this is.
    if (WaitForSingleObject(end_, 0) == WAIT_OBJECT_0) {
        ResetEvent(end_);
        SetLastError(ERROR_CANCELLED);
        return false;
    }
    begun_ = true;
    away_.clear();
    const HRESULT result = prepare(*volumes, backupType);
    if (FAILED(result)) {
        return fail(result);
    }
    return !now || makeSnapshot();
}

HRESULT VSSRequester::prepare(const std::vector<std::wstring>& volumes, int backupType) {
    HRESULT result = provider_->begin(backupType, end_);
    std::vector<std::wstring> supported;
    for (const std::wstring& volume : volumes) {
        // What is not there must not cost the others their backup.
        if (isAway(volume)) {
            away_.push_back(volume);
            continue;
        }
        bool can = false;
        if (FAILED(result) || FAILED(result = provider_->supports(volume, can))) {
            return result;
        }
        if (can) {
            supported.push_back(volume);
        }
    }
    prepared_ = !supported.empty();
    return prepared_ ? provider_->prepare(supported, end_) : result;
}

bool VSSRequester::wasAway(const std::wstring& volume) const {
    return std::find(away_.begin(), away_.end(), volume) != away_.end();
}

bool VSSRequester::makeSnapshot() {
    if (!begun_ || !prepared_) {
        return true;
    }
    volumes_.clear();
    const HRESULT result = provider_->snapshot(volumes_, end_);
    return SUCCEEDED(result) || fail(result);
}

bool VSSRequester::endBackup() {
    volumes_.clear();
    if (!begun_) {
        return true;
    }
    begun_ = false;
    prepared_ = false;
    const HRESULT result = provider_->complete();
    ResetEvent(end_);
    if (FAILED(result)) {
        SetLastError(toLastError(result));
        return false;
    }
    return true;
}

void VSSRequester::setEndEvent() {
    if (end_ != nullptr) {
        SetEvent(end_);
    }
}

int VSSRequester::volumeCount() const {
    return static_cast<int>(volumes_.size());
}

const SnapshotVolume& VSSRequester::volume(int index) const {
    return volumes_[static_cast<size_t>(index)];
}

const char* VSSRequester::step() const {
    return step_;
}

// Ends what was begun and leaves the reason as the last error. Always false.
bool VSSRequester::fail(HRESULT result) {
    step_ = provider_->step();
    failedVolume_ = provider_->volume();
    endBackup();
    SetLastError(toLastError(result));
    return false;
}

}  // namespace dorvo
