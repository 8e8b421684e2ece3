#include "record/jobactivityhandle.h"

#include <cstring>
#include <string>

#include "base/last_error.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr size_t longestName = 260;

// Of the machine, which takes a right that a plain console lacks, else of the session.
constexpr const wchar_t* namespaces[] = {L"Global\\", L""};

// False for an id that is no name for a folder: in a section's name it could mean another object.
bool sectionName(const char* id, const wchar_t* space, std::wstring& name) {
    if (id == nullptr || !isJobId(id)) {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    name = space + (L"job_" + toWide(id));
    if (name.size() > longestName) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    return true;
}

// Logs a failure whose reason is the thread's last error, and keeps that.
bool failed(LogText<std::string, std::string> format, const char* id) {
    return logFailed<std::string, std::string>(format, id == nullptr ? "" : id,
                                               errorText(GetLastError()));
}

// Every account of the machine may open the section.
HANDLE createCopy(const wchar_t* name) {
    SECURITY_DESCRIPTOR descriptor;
    if (InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) == 0 ||
        SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE) == 0) {
        return nullptr;
    }
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
    return CreateFileMappingW(INVALID_HANDLE_VALUE, &attributes, PAGE_READWRITE, 0,
                              JobActivity::recordSize, name);
}

// Whether all of a view is there to be written to: whoever has made the section may have reserved
// it only.
bool isCommitted(const void* view) {
    MEMORY_BASIC_INFORMATION memory;
    return VirtualQuery(view, &memory, sizeof(memory)) != 0 && memory.State == MEM_COMMIT &&
           memory.RegionSize >= JobActivity::recordSize;
}

bool infoFile(const char* id, std::wstring& path) {
    if (!jobDirectory(id, path)) {
        return false;
    }
    path = longPath(path + L"\\info");
    return true;
}

}  // namespace

bool JobActivityHandle::open(const char* id, bool writable) {
    const FunctionTrace trace("JobActivityHandle::open", "jobactivityhandle.cpp");
    close();
    return writable ? openWritable(id) : openCopy(id);
}

bool JobActivityHandle::openCopy(const char* id) {
    std::wstring name;
    for (const wchar_t* space : namespaces) {
        if (!mapping_ && sectionName(id, space, name)) {
            mapping_.reset(OpenFileMappingW(FILE_MAP_READ, FALSE, name.c_str()));
        }
    }
    if (!mapping_) {
        return failed("Failed to open job {%s} activity info file mapping, %s", id);
    }
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ, 0, 0, JobActivity::recordSize));
    if (!view_) {
        failed("Failed to get map view of job {%s} activity info file, %s", id);
        mapping_.reset();
        return false;
    }
    return true;
}

bool JobActivityHandle::openWritable(const char* id) {
    std::wstring path;
    std::wstring name;
    if (!sectionName(id, namespaces[0], name) || !infoFile(id, path)) {
        return failed("Failed to open job {%s} activity info file, %s.\n", id);
    }
    file_.reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_) {
        return failed("Failed to open job {%s} activity info file, %s.\n", id);
    }
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS;
    if (!map(id)) {
        const LastErrorGuard keep;
        close();
        return false;
    }
    JobActivity& record = *get();
    // Without a byte, or blank, is what a crash right after its creation leaves, and nothing of a
    // job can be read from it.
    if (record.isBlank()) {
        if (existed) {
            log(LogLevel::warning, "The activity info file of job {%s} is blank.\n", id);
        }
        log(LogLevel::information,
            "New created job activity file, reset the job state to JS_IDLE.\n");
        share(id);
        reset(static_cast<int32_t>(JobState::idle), true);
        sync();
        return true;
    }
    if (!record.recognised()) {
        return logFailed(ERROR_INVALID_DATA,
                         "Unrecognize job {%s} activity info file version %d.%d, base size %d.\n",
                         id, record.majorVersion, record.minorVersion, record.baseSize);
    }
    share(id);
    publish();
    return true;
}

// The record itself has no name: who can open it is who can open the file.
bool JobActivityHandle::map(const char* id) {
    mapping_.reset(CreateFileMappingW(file_.get(), nullptr, PAGE_READWRITE, 0,
                                      JobActivity::recordSize, nullptr));
    if (!mapping_) {
        return failed("Failed to map job {%s} activity info file, %s.\n", id);
    }
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0,
                              JobActivity::recordSize));
    return view_ || failed("Failed to get map view of job {%s} activity info file, %s.\n", id);
}

void JobActivityHandle::share(const char* id) {
    for (const wchar_t* space : namespaces) {
        std::wstring name;
        sectionName(id, space, name);
        sharedMapping_.reset(createCopy(name.c_str()));
        if (sharedMapping_) {
            shared_.reset(
                MapViewOfFile(sharedMapping_.get(), FILE_MAP_WRITE, 0, 0, JobActivity::recordSize));
        }
        if (shared_ && isCommitted(shared_.get())) {
            return;
        }
        const LastErrorGuard keep;
        shared_.reset();
        log(LogLevel::information, "The record of job {%s} is not shared as \"%s\", %s.\n", id,
            toUtf8(name), errorText(keep.error()));
    }
    sharedMapping_.reset();
}

void JobActivityHandle::reset(int32_t state, bool full) {
    get()->reset(state, full);
}

bool JobActivityHandle::sync() {
    publish();
    return view_ && FlushViewOfFile(view_.get(), 0) != 0;
}

void JobActivityHandle::publish() {
    if (shared_) {
        std::memcpy(shared_.get(), view_.get(), JobActivity::recordSize);
    }
}

void JobActivityHandle::close() {
    shared_.reset();
    sharedMapping_.reset();
    view_.reset();
    mapping_.reset();
    file_.reset();
}

bool JobActivityHandle::read(const char* id, JobActivity& record) {
    std::wstring path;
    if (id == nullptr || !infoFile(id, path)) {
        return false;
    }
    // What is mapped and what the file gives are the same bytes.
    const FileHandle file(CreateFileW(path.c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        return false;
    }
    JobActivity read{};
    DWORD length = 0;
    if (ReadFile(file.get(), &read, sizeof(read), &length, nullptr) == 0) {
        return false;
    }
    if (length != sizeof(read) || !read.recognised()) {
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    record = read;
    return true;
}

}  // namespace dorvo
