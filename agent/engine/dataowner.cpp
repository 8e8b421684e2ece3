#include "engine/dataowner.h"

#include <algorithm>
#include <array>

#include "base/paths.h"
#include "base/text.h"
#include "json_spirit/json_spirit.h"
#include "text/agenterror.h"
#include "text/failuretext.h"
#include "text/format.h"

namespace dorvo::agent {
namespace {

// What the holder writes after it has opened the file wakes nobody.
constexpr DWORD sliceMs = 1'000;
constexpr DWORD longestFile = 64 * 1024;
constexpr size_t longestCommand = 1024;

std::wstring filePath() {
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        throw AgentError("The data directory cannot be made: " + failureText(GetLastError()));
    }
    return directory + L"\\owner";
}

FileHandle openFile(const std::wstring& path) {
    return FileHandle(CreateFileW(path.c_str(), GENERIC_WRITE | DELETE, FILE_SHARE_READ, nullptr,
                                  OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL | FILE_FLAG_DELETE_ON_CLOSE,
                                  nullptr));
}

bool isHeld(DWORD error) {
    return error == ERROR_SHARING_VIOLATION || error == ERROR_DELETE_PENDING;
}

DWORD leftOf(DWORD patienceMs, ULONGLONG waited) {
    if (patienceMs == INFINITE) {
        return INFINITE;
    }
    return waited < patienceMs ? static_cast<DWORD>(patienceMs - waited) : 0;
}

std::string ownText(DataOwner::Role role) {
    std::string command = toUtf8(GetCommandLineW());
    if (command.size() > longestCommand) {
        command = shortened(command, longestCommand);
    }
    return json_spirit::write(json_spirit::Value(
        json_spirit::Object{{"process", static_cast<uint64_t>(GetCurrentProcessId())},
                            {"resident", role == DataOwner::Role::resident},
                            {"command", command}}));
}

// For people only: who cannot be told is waited for like any other.
void tell(HANDLE file, DataOwner::Role role) {
    const std::string text = ownText(role);
    DWORD written = 0;
    SetEndOfFile(file);
    WriteFile(file, text.data(), static_cast<DWORD>(text.size()), &written, nullptr);
}

std::optional<Holder> parse(const std::string& text) {
    try {
        json_spirit::Value value;
        json_spirit::read_or_throw(text, value);
        json_spirit::Object& members = value.get_obj();
        return Holder{.process = static_cast<uint32_t>(members["process"].get_uint64()),
                      .resident = members["resident"].get_bool(),
                      .command = members["command"].get_str()};
    } catch (const json_spirit::Error_position&) {
        return {};
    } catch (const std::runtime_error&) {
        return {};
    }
}

std::string sentence(const std::optional<Holder>& holder) {
    if (!holder) {
        return "Another agent is running jobs on this machine: wait until it has ended, or pause "
               "its run with Ctrl+C";
    }
    return holder->resident
               ? "The resident agent, " + holderText(*holder) +
                     ", has the data directory and does not answer: stop it ('agent service stop', "
                     "or Ctrl+C in its window), end that process if it does not stop, and " +
                     residentHint
               : "Another command of the agent, " + holderText(*holder) +
                     ", is running jobs on this machine: wait until it has ended, or pause its run "
                     "with Ctrl+C in its window";
}

}  // namespace

DirectoryWatch::DirectoryWatch() {
    std::wstring directory;
    if (!dataDirectory(directory) || !createDirectories(directory)) {
        throw AgentError("The data directory cannot be made: " + failureText(GetLastError()));
    }
    changes_.reset(
        FindFirstChangeNotificationW(directory.c_str(), FALSE, FILE_NOTIFY_CHANGE_FILE_NAME));
}

DirectoryWatch::Woken DirectoryWatch::wait(HANDLE other, DWORD ms) {
    std::array<HANDLE, 2> handles{};
    DWORD count = 0;
    if (other != nullptr) {
        handles[count++] = other;
    }
    if (changes_) {
        handles[count++] = changes_.get();
    }
    if (count == 0) {
        Sleep(ms);
        return Woken::time;
    }
    const DWORD got = WaitForMultipleObjects(count, handles.data(), FALSE, ms);
    if (got >= WAIT_OBJECT_0 + count) {
        return Woken::time;
    }
    if (handles[got - WAIT_OBJECT_0] == other) {
        return Woken::other;
    }
    taken();
    return Woken::change;
}

void DirectoryWatch::taken() {
    FindNextChangeNotification(changes_.get());
}

std::string holderText(const Holder& holder) {
    return "process " + std::to_string(holder.process) + " (" + printable(holder.command) + ")";
}

DataOwned::DataOwned(std::optional<Holder> holder)
    : AgentError(sentence(holder)), holder_(std::move(holder)) {}

DataOwner::DataOwner(Role role, const Patience& patience) {
    const std::wstring path = filePath();
    // From before the first try: whoever lets go afterwards is noticed.
    DirectoryWatch watch;
    const ULONGLONG begin = GetTickCount64();
    ULONGLONG lastHeld = begin;
    bool waits = false;
    std::optional<Holder> told;
    for (;;) {
        file_ = openFile(path);
        const DWORD error = GetLastError();
        if (file_) {
            tell(file_.get(), role);
            return;
        }
        const ULONGLONG now = GetTickCount64();
        DWORD left = sliceMs;
        if (isHeld(error)) {
            lastHeld = now;
            left = leftOf(patience.ms, now - begin);
            const auto by = holder();
            if (patience.waits && (!waits || told != by)) {
                waits = true;
                told = by;
                patience.waits(by);
            }
        } else if (error != ERROR_ACCESS_DENIED || now - lastHeld >= patience.deletionMs) {
            throw AgentError("The data directory cannot be locked: " + failureText(error));
        }
        if (left == 0 ||
            watch.wait(patience.giveUp, std::min(left, sliceMs)) == DirectoryWatch::Woken::other) {
            throw DataOwned(holder());
        }
    }
}

std::optional<Holder> DataOwner::holder() {
    std::wstring directory;
    if (!dataDirectory(directory)) {
        return {};
    }
    const FileHandle file(CreateFileW((directory + L"\\owner").c_str(), GENERIC_READ,
                                      FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE,
                                      nullptr, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
    std::string text(longestFile, '\0');
    DWORD size = 0;
    if (!file ||
        ReadFile(file.get(), text.data(), static_cast<DWORD>(text.size()), &size, nullptr) == 0) {
        return {};
    }
    text.resize(size);
    return parse(text);
}

}  // namespace dorvo::agent
