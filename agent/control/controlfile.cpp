#include "control/controlfile.h"

#include <aclapi.h>
#include <json_spirit/json_spirit.h>
#include <sddl.h>
#include <windows.h>

#include <array>
#include <memory>

#include "base/handle.h"
#include "base/paths.h"
#include "text/agenterror.h"
#include "text/failuretext.h"

namespace dorvo::agent {
namespace {

constexpr DWORD longestFile = 4096;

struct FreeLocal {
    void operator()(void* memory) const { LocalFree(memory); }
};
template <class T>
using LocalMemory = std::unique_ptr<T, FreeLocal>;

[[noreturn]] void failWrite(DWORD error) {
    throw AgentError("The agent's control file cannot be written: " + failureText(error));
}

std::wstring directory() {
    std::wstring path;
    if (!dataDirectory(path)) {
        throw AgentError("The data directory is not known: " + failureText(GetLastError()));
    }
    return path;
}

// "S-1-5-21-...".
std::wstring ownerOf(const std::wstring& folder) {
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    PSID owner = nullptr;
    const DWORD error =
        GetNamedSecurityInfoW(folder.c_str(), SE_FILE_OBJECT, OWNER_SECURITY_INFORMATION, &owner,
                              nullptr, nullptr, nullptr, &descriptor);
    const LocalMemory<void> owned(descriptor);
    if (error != ERROR_SUCCESS) {
        failWrite(error);
    }
    wchar_t* text = nullptr;
    if (ConvertSidToStringSidW(owner, &text) == 0) {
        failWrite(GetLastError());
    }
    const LocalMemory<wchar_t> ownedText(text);
    return text;
}

// A file that was there may have another access list, so it goes first.
FileHandle createAnew(const std::wstring& path, const std::wstring& owner) {
    const std::wstring access = L"D:P(A;;FA;;;SY)(A;;FA;;;BA)(A;;FA;;;" + owner + L")";
    PSECURITY_DESCRIPTOR descriptor = nullptr;
    if (ConvertStringSecurityDescriptorToSecurityDescriptorW(access.c_str(), SDDL_REVISION_1,
                                                             &descriptor, nullptr) == 0) {
        failWrite(GetLastError());
    }
    const LocalMemory<void> owned(descriptor);
    SECURITY_ATTRIBUTES security{sizeof(security), descriptor, FALSE};
    DeleteFileW(path.c_str());
    FileHandle file(CreateFileW(path.c_str(), GENERIC_WRITE, 0, &security, CREATE_NEW,
                                FILE_ATTRIBUTE_NORMAL, nullptr));
    if (!file) {
        failWrite(GetLastError());
    }
    return file;
}

}  // namespace

ControlFile::ControlFile(const ControlAddress& address) {
    json_spirit::Object object;
    object["port"] = address.port;
    object["token"] = address.token;
    object["proof"] = address.proof;
    const std::string text = json_spirit::write(json_spirit::Value(object));
    const std::wstring fresh = path() + L".new";
    {
        const FileHandle file = createAnew(fresh, ownerOf(directory()));
        DWORD written = 0;
        if (WriteFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &written,
                      nullptr) == 0 ||
            written != text.size()) {
            failWrite(GetLastError());
        }
    }
    if (MoveFileExW(fresh.c_str(), path().c_str(), MOVEFILE_REPLACE_EXISTING) == 0) {
        failWrite(GetLastError());
    }
}

ControlFile::~ControlFile() {
    DeleteFileW(path().c_str());
}

std::optional<ControlAddress> ControlFile::read() {
    const FileHandle file(CreateFileW(path().c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::array<char, longestFile> bytes{};
    DWORD size = 0;
    if (!file || ReadFile(file.get(), bytes.data(), longestFile, &size, nullptr) == 0) {
        const DWORD error = GetLastError();
        if (error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND) {
            return {};
        }
        if (error == ERROR_ACCESS_DENIED) {
            throw AgentError(
                "A resident agent is set up on this machine, and only its administrators and the "
                "owner of its data may command it: run this as one of them");
        }
        throw AgentError("The agent's control file cannot be read: " + failureText(error));
    }
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(std::string(bytes.data(), size), value);
        const json_spirit::Object& object = value.get_obj();
        const auto port = object.find("port");
        ControlAddress address;
        address.token = json_spirit::object_get_str_or_throw(object, "token");
        address.proof = json_spirit::object_get_str_or_throw(object, "proof");
        if (port == object.end() || port->second.get_int() < 1 || port->second.get_int() > 65535) {
            return {};
        }
        address.port = static_cast<uint16_t>(port->second.get_int());
        return address;
    } catch (const json_spirit::Error_position&) {
        return {};
    } catch (const std::runtime_error&) {
        return {};
    }
}

std::wstring ControlFile::path() {
    return directory() + L"\\control";
}

}  // namespace dorvo::agent
