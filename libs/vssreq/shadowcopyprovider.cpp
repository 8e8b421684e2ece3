#include "vssreq/shadowcopyprovider.h"

// The service's interface; it needs what a lean windows.h leaves out.
#include <ole2.h>
#include <vsbackup.h>
#include <vss.h>
#include <vsserror.h>

#include <utility>

namespace dorvo {
namespace {

constexpr DWORD waitLimitMs = 5 * 60 * 1000;
constexpr DWORD pollMs = 100;

// Owns one reference to a COM object.
template <class T>
class Reference {
public:
    Reference() = default;
    ~Reference() { reset(); }
    Reference(const Reference&) = delete;
    Reference& operator=(const Reference&) = delete;

    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    // Where a call puts a new reference.
    T** receive() {
        reset();
        return &object_;
    }
    void reset() {
        if (T* old = std::exchange(object_, nullptr)) {
            old->Release();
        }
    }

private:
    T* object_ = nullptr;
};

// The functions of vssapi.dll, which a machine may not have. Once loaded it stays: the service runs
// threads in it.
struct Api {
    using Create = HRESULT(WINAPI*)(IVssBackupComponents**);
    using Free = void(WINAPI*)(VSS_SNAPSHOT_PROP*);

    HRESULT result = S_OK;  // of loading
    Create create = nullptr;
    Free freeProperties = nullptr;

    static const Api& instance() {
        static const Api api;
        return api;
    }

private:
    Api() {
        HMODULE module = LoadLibraryExW(L"vssapi.dll", nullptr, LOAD_LIBRARY_SEARCH_SYSTEM32);
        if (module == nullptr) {
            result = HRESULT_FROM_WIN32(GetLastError());
            return;
        }
        create = function<Create>(module, "CreateVssBackupComponentsInternal");
        freeProperties = function<Free>(module, "VssFreeSnapshotPropertiesInternal");
        result = create != nullptr && freeProperties != nullptr
                     ? S_OK
                     : HRESULT_FROM_WIN32(ERROR_PROC_NOT_FOUND);
    }
    template <class Function>
    static Function function(HMODULE module, const char* name) {
        return reinterpret_cast<Function>(
            reinterpret_cast<void (*)()>(GetProcAddress(module, name)));
    }
};

// Waits between two questions, lets COM deliver calls to this thread meanwhile. True when the event
// is set.
bool endedWithin(HANDLE end, DWORD milliseconds) {
    if (end == nullptr) {
        Sleep(milliseconds);
        return false;
    }
    DWORD index = 0;
    const HRESULT result = CoWaitForMultipleHandles(0, milliseconds, 1, &end, &index);
    if (result == S_OK) {
        return true;
    }
    return result != RPC_S_CALLPENDING && WaitForSingleObject(end, milliseconds) == WAIT_OBJECT_0;
}

// Waits for one of the service's operations to be done.
HRESULT waitFor(Reference<IVssAsync>& operation, HANDLE end) {
    const ULONGLONG deadline = GetTickCount64() + waitLimitMs;
    for (;;) {
        HRESULT status = S_OK;
        const HRESULT result = operation->QueryStatus(&status, nullptr);
        if (FAILED(result)) {
            return result;
        }
        if (FAILED(status)) {
            return status;
        }
        if (status == VSS_S_ASYNC_FINISHED) {
            return S_OK;
        }
        if (status == VSS_S_ASYNC_CANCELLED) {
            return HRESULT_FROM_WIN32(ERROR_CANCELLED);
        }
        const bool ended = endedWithin(end, pollMs);
        if (ended || GetTickCount64() >= deadline) {
            operation->Cancel();
            return HRESULT_FROM_WIN32(ended ? ERROR_CANCELLED : ERROR_TIMEOUT);
        }
    }
}

class ShadowCopyProvider : public SnapshotProvider {
public:
    HRESULT begin(int backupType, HANDLE end) override { return create(backupType, end); }

    // The service does not know the volumes of other machines, which is an error to it.
    HRESULT supports(const std::wstring& volume, bool& supported) override {
        supported = false;
        if (GetDriveTypeW(volume.c_str()) == DRIVE_REMOTE) {
            return S_OK;
        }
        std::wstring name = volume;  // the interface takes no constant
        WINBOOL answer = FALSE;
        step_ = "IsVolumeSupported";
        volume_ = volume;
        const HRESULT result = components_->IsVolumeSupported(GUID_NULL, name.data(), &answer);
        supported = SUCCEEDED(result) && answer != FALSE;
        if (SUCCEEDED(result)) {
            volume_.clear();
        }
        return result;
    }

    HRESULT prepare(const std::vector<std::wstring>& volumes, HANDLE end) override {
        const HRESULT result = addVolumes(volumes);
        return FAILED(result)
                   ? result
                   : run("PrepareForBackup", &IVssBackupComponents::PrepareForBackup, end);
    }

    HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE end) override {
        HRESULT result = run("DoSnapshotSet", &IVssBackupComponents::DoSnapshotSet, end);
        if (FAILED(result)) {
            return result;
        }
        made_ = true;
        for (SnapshotVolume& member : members_) {
            result = describe(member);
            if (FAILED(result)) {
                return result;
            }
        }
        made = members_;
        return S_OK;
    }

    HRESULT complete() override {
        HRESULT result = S_OK;
        if (made_) {
            result = run("BackupComplete", &IVssBackupComponents::BackupComplete, nullptr);
            const HRESULT removed = deleteSnapshots();
            result = FAILED(result) ? result : removed;
        } else if (components_) {
            components_->AbortBackup();
        }
        made_ = false;
        members_.clear();
        components_.reset();  // the service drops what is still there of the set
        return result;
    }

    const char* step() const override { return step_; }
    std::wstring volume() const override { return volume_; }

private:
    HRESULT create(int backupType, HANDLE end) {
        volume_.clear();
        step_ = "load vssapi.dll";
        const Api& api = Api::instance();
        if (FAILED(api.result) || api.create == nullptr) {
            return api.result;
        }
        // Writers call back into this process. Whoever set its security before has the say.
        CoInitializeSecurity(nullptr, -1, nullptr, nullptr, RPC_C_AUTHN_LEVEL_PKT_PRIVACY,
                             RPC_C_IMP_LEVEL_IDENTIFY, nullptr, EOAC_NONE, nullptr);
        step_ = "CreateVssBackupComponents";
        HRESULT result = api.create(components_.receive());
        if (SUCCEEDED(result)) {
            step_ = "InitializeForBackup";
            result = components_->InitializeForBackup(nullptr);
        }
        if (SUCCEEDED(result)) {
            step_ = "SetContext";
            result = components_->SetContext(VSS_CTX_BACKUP);
        }
        if (SUCCEEDED(result)) {
            step_ = "SetBackupState";
            result = components_->SetBackupState(false, false,
                                                 static_cast<VSS_BACKUP_TYPE>(backupType), false);
        }
        return FAILED(result)
                   ? result
                   : run("GatherWriterMetadata", &IVssBackupComponents::GatherWriterMetadata, end);
    }

    HRESULT addVolumes(const std::vector<std::wstring>& volumes) {
        volume_.clear();
        step_ = "StartSnapshotSet";
        HRESULT result = components_->StartSnapshotSet(&set_);
        for (const std::wstring& volume : volumes) {
            if (FAILED(result)) {
                break;
            }
            SnapshotVolume member;
            member.volumePath = volume;
            std::wstring name = volume;
            step_ = "AddToSnapshotSet";
            volume_ = volume;
            result = components_->AddToSnapshotSet(name.data(), GUID_NULL, &member.snapshotId);
            members_.push_back(std::move(member));
        }
        if (SUCCEEDED(result)) {
            volume_.clear();
        }
        return result;
    }

    HRESULT describe(SnapshotVolume& member) {
        step_ = "GetSnapshotProperties";
        volume_ = member.volumePath;
        VSS_SNAPSHOT_PROP properties{};
        const HRESULT result = components_->GetSnapshotProperties(member.snapshotId, &properties);
        if (FAILED(result)) {
            return result;
        }
        member.snapshotSetId = properties.m_SnapshotSetId;
        member.shadowPath = properties.m_pwszSnapshotDeviceObject;
        member.shadowPath += L'\\';  // the device itself cannot be listed, its root can
        member.creationTimestamp = properties.m_tsCreationTimestamp;
        if (const Api::Free release = Api::instance().freeProperties) {
            release(&properties);
        }
        volume_.clear();
        return S_OK;
    }

    HRESULT deleteSnapshots() {
        step_ = "DeleteSnapshots";
        LONG deleted = 0;
        VSS_ID undeleted = GUID_NULL;
        return components_->DeleteSnapshots(set_, VSS_OBJECT_SNAPSHOT_SET, TRUE, &deleted,
                                            &undeleted);
    }

    HRESULT run(const char* step, HRESULT (WINAPI IVssBackupComponents::*call)(IVssAsync**),
                HANDLE end) {
        step_ = step;
        Reference<IVssAsync> operation;
        IVssBackupComponents& components = *components_.operator->();
        const HRESULT result = (components.*call)(operation.receive());
        return FAILED(result) ? result : waitFor(operation, end);
    }

    Reference<IVssBackupComponents> components_;
    VSS_ID set_{};
    std::vector<SnapshotVolume> members_;  // of the set
    bool made_ = false;                    // the set's snapshots exist
    const char* step_ = "";
    std::wstring volume_;  // that a failed call was about; empty: all of them
};

}  // namespace

std::unique_ptr<SnapshotProvider> makeShadowCopyProvider() {
    return std::make_unique<ShadowCopyProvider>();
}

}  // namespace dorvo
