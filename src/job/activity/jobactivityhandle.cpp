#include "job/activity/jobactivityhandle.h"

#include <string>

#include "base/error_text.h"
#include "base/log.h"
#include "base/paths.h"
#include "base/text.h"

namespace dorvo {
namespace {

constexpr size_t longestName = 260;

// False for an id that is no name for a folder: in a section's name it could mean another object.
bool sectionName(const char* id, std::wstring& name) {
    if (id == nullptr || !isJobId(id)) {
        SetLastError(ERROR_INVALID_NAME);
        return false;
    }
    name = L"Global\\job_" + toWide(id);
    if (name.size() > longestName) {
        SetLastError(ERROR_FILENAME_EXCED_RANGE);
        return false;
    }
    return true;
}

// Logs a failure whose reason is the thread's last error, and keeps that.
bool failed(const char* format, const char* id) {
    const LastErrorGuard keep;
    log(LogLevel::error, format, id == nullptr ? "" : id, errorText(keep.error()).c_str());
    return false;
}

// Every account of the machine may open the section.
HANDLE createSection(HANDLE file, const wchar_t* name) {
    SECURITY_DESCRIPTOR descriptor;
    if (InitializeSecurityDescriptor(&descriptor, SECURITY_DESCRIPTOR_REVISION) == 0 ||
        SetSecurityDescriptorDacl(&descriptor, TRUE, nullptr, FALSE) == 0) {
        return nullptr;
    }
    SECURITY_ATTRIBUTES attributes{sizeof(attributes), &descriptor, FALSE};
    return CreateFileMappingW(file, &attributes, PAGE_READWRITE, 0, JobActivity::recordSize, name);
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
    std::wstring name;
    const bool named = sectionName(id, name);
    if (writable) {
        return named ? openWritable(id, name.c_str())
                     : failed("Failed to open job {%s} activity info file, %s.\n", id);
    }
    if (!named || !openShared(name.c_str())) {
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

bool JobActivityHandle::openShared(const wchar_t* name) {
    mapping_.reset(OpenFileMappingW(FILE_MAP_READ, FALSE, name));
    return static_cast<bool>(mapping_);
}

bool JobActivityHandle::openWritable(const char* id, const wchar_t* name) {
    std::wstring path;
    if (!infoFile(id, path)) {
        return failed("Failed to open job {%s} activity info file, %s.\n", id);
    }
    file_.reset(CreateFileW(path.c_str(), GENERIC_READ | GENERIC_WRITE,
                            FILE_SHARE_READ | FILE_SHARE_DELETE, nullptr, OPEN_ALWAYS,
                            FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file_) {
        return failed("Failed to open job {%s} activity info file, %s.\n", id);
    }
    // A file without a byte is what a crash right after its creation leaves.
    LARGE_INTEGER size{};
    const bool existed = GetLastError() == ERROR_ALREADY_EXISTS &&
                         (GetFileSizeEx(file_.get(), &size) == 0 || size.QuadPart != 0);

    mapping_.reset(createSection(file_.get(), name));
    if (!mapping_) {
        failed("Failed to map job {%s} activity info file, %s.\n", id);
        close();
        return false;
    }
    view_.reset(MapViewOfFile(mapping_.get(), FILE_MAP_READ | FILE_MAP_WRITE, 0, 0,
                              JobActivity::recordSize));
    if (!view_) {
        failed("Failed to get map view of job {%s} activity info file, %s.\n", id);
        close();
        return false;
    }
    if (!existed) {
        log(LogLevel::information,
            "New created job activity file, reset the job state to JS_IDLE.\n");
        reset(static_cast<int32_t>(JobState::idle), true);
        sync();
        return true;
    }
    const JobActivity& record = *get();
    if (!record.recognised()) {
        log(LogLevel::error,
            "Unrecognize job {%s} activity info file version %d.%d, base size %d.\n", id,
            record.majorVersion, record.minorVersion, static_cast<int>(record.baseSize));
        SetLastError(ERROR_INVALID_DATA);
        return false;
    }
    return true;
}

void JobActivityHandle::reset(int32_t state, bool full) {
    get()->reset(state, full);
}

bool JobActivityHandle::sync() {
    return view_ && FlushViewOfFile(view_.get(), 0) != 0;
}

void JobActivityHandle::close() {
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
