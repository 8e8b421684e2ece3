// What the storage of a test's runs is asked and answers, and the parts of a run that ask it.
#pragma once

#include <windows.h>

#include <algorithm>
#include <deque>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "base/disk_room.h"
#include "base/last_error.h"
#include "base/paths.h"
#include "base/text.h"
#include "json_spirit/json_spirit.h"
#include "source/incrementcheck.h"
#include "storage/backupstorage.h"
#include "storage/restorecatalog.h"
#include "storage/restorestorage.h"
#include "support/failing_open.h"
#include "support/files.h"
#include "support/held_file.h"
#include "vssreq/snapshotprovider.h"

namespace dorvo::test {

using Names = std::vector<std::string>;

// What the storage of every run of a job was asked, and what it answers: 0 for success.
struct Script {
    Names calls;  // "start", "C:\...", "end", "cancel" (a restore that ends otherwise, too)
    std::vector<std::wstring> readFrom;  // of a backup's items
    std::vector<std::wstring> targets;   // of a restore's
    json_spirit::Object history;         // that a restore ended with
    std::deque<DWORD> start;
    std::map<std::string, std::deque<DWORD>> items;  // by file name
    std::deque<DWORD> end;
    DWORD record = 0;          // the next item that fails, which is to be written down
    std::deque<DWORD> cancel;  // of a backup
    std::deque<DWORD> list;    // each page of a catalog, each batch of an increment check
    std::function<void(const std::string& name)> onItem;
    std::function<void()> onList;
    std::function<void()> onStorage;  // before one is made
    size_t listed = 0;                // how often a list was asked for
    std::deque<DWORD> check;          // for an increment check
    std::function<void()> onCheck;
    size_t checks = 0;           // that there are
    std::deque<DWORD> snapshot;  // to a snapshot of all volumes, which is a call, too
    std::function<void()> onSnapshot;
    std::wstring failedVolume;  // that the failure is about
    bool snapshotTold = false;  // after onSnapshot: that the run is to stop
    // Where the snapshots of volumes are; others can have none. Empty: each where the volume is.
    std::map<std::wstring, std::wstring> shadows;
    std::function<void()> onCall;            // before each, and before it is answered
    std::function<void()> onEnds;            // before the final state of a backup is recorded
    size_t wakes = 0;                        // of those who tell storages which runs to drop
    std::function<void()> onRun;             // before anything else of a run
    std::function<void(int end)> onCleanup;  // at its end
    uint64_t room = uint64_t{1} << 40;       // on every disk, bytes
    std::vector<DiskNeed> needs;             // that were asked for last
    bool noStorage = false;
    std::vector<RestoreCatalog::Item> catalog;
    std::string cutOff;  // the run is cut off when this file of a restore is in its place
    std::function<void(uint32_t number, const std::wstring& target)> onPlaced;

    // No failed item can be written down, while the run has its storage.
    struct Unwritable {
        explicit Unwritable(DWORD error) : journal(L".errors.journal", error) {}
        const FailingOpen journal;
        const Meanwhile nothing;
    };
    std::unique_ptr<Unwritable> unwritable;

    static bool answer(std::deque<DWORD>& errors) {
        if (errors.empty()) {
            return true;
        }
        const DWORD error = errors.front();
        errors.pop_front();
        SetLastError(error);
        return error == 0;
    }
    bool note(const std::string& call, std::deque<DWORD>& errors) {
        const auto look = [this] {
            if (onCall) {
                onCall();
            }
        };
        look();
        calls.push_back(call);
        look();
        return answer(errors);
    }
    bool item(const wchar_t* path) {
        const std::string utf8 = toUtf8(path);
        const std::string name = utf8.substr(utf8.rfind('\\') + 1);
        if (onItem) {
            onItem(name);
        }
        if (note(utf8, items[name])) {
            return true;
        }
        if (record != 0) {
            const LastErrorGuard keep;
            unwritable = std::make_unique<Unwritable>(std::exchange(record, 0));
        }
        return false;
    }
    bool askList() {
        ++listed;
        if (onList) {
            onList();
        }
        return answer(list);
    }
    // The names of the items that the storage was asked for.
    Names stored() const {
        Names names;
        for (const std::string& call : calls) {
            if (call.find('\\') != std::string::npos) {
                names.push_back(call.substr(call.rfind('\\') + 1));
            }
        }
        return names;
    }
    size_t count(const std::string& call) const {
        return static_cast<size_t>(std::count(calls.begin(), calls.end(), call));
    }
};

class FakeBackupStorage : public BackupStorage {
public:
    explicit FakeBackupStorage(Script& script) : script_(script) {}
    ~FakeBackupStorage() override { script_.unwritable.reset(); }

    bool start() override { return script_.note("start", script_.start); }
    bool end() override { return script_.note("end", script_.end); }
    bool cancel() override { return script_.note("cancel", script_.cancel); }
    bool backup(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA&, uint32_t,
                const wchar_t* readFrom) override {
        script_.readFrom.emplace_back(readFrom == nullptr ? L"" : readFrom);
        return script_.item(path);
    }

private:
    Script& script_;
};

// Makes what it is asked for, with the item's original path for content.
class FakeRestoreStorage : public RestoreStorage {
public:
    explicit FakeRestoreStorage(Script& script) : script_(script) {}
    ~FakeRestoreStorage() override { script_.unwritable.reset(); }

    bool start() override { return script_.note("start", script_.start); }
    bool end(const json_spirit::Object& history) override {
        script_.history = history;
        if (history.at("state").get_str() == "completed") {
            return script_.note("end", script_.end);
        }
        script_.calls.emplace_back("cancel");
        return true;
    }
    bool restoreDirectory(const wchar_t* original, const wchar_t* target) override {
        script_.targets.emplace_back(target);
        return script_.item(original) && createDirectories(target);
    }
    bool restoreFile(const wchar_t* original, const wchar_t* target, uint32_t number,
                     bool replace) override {
        script_.targets.emplace_back(target);
        if (!script_.item(original)) {
            return false;
        }
        if (!replace && exists(target)) {
            SetLastError(ERROR_FILE_EXISTS);
            return false;
        }
        std::ofstream(target, std::ios::binary) << toUtf8(original);
        if (!script_.cutOff.empty() && toUtf8(original).ends_with("\\" + script_.cutOff)) {
            script_.cutOff.clear();
            script_.onPlaced(number, target);
            SetLastError(WSAECONNRESET);
            return false;
        }
        return true;
    }

private:
    Script& script_;
};

// Lists the script's catalog, two items a page.
class FakeCatalog : public RestoreCatalog {
public:
    explicit FakeCatalog(Script& script) : script_(script) {}

    bool list(const std::wstring& path, const std::string& after, Page& page) override {
        page = {};
        if (!script_.askList()) {
            return false;
        }
        std::vector<Item> all;
        for (const Item& item : script_.catalog) {
            if (path.empty() || item.path == path || item.path.starts_with(path + L"\\")) {
                all.push_back(item);
            }
        }
        const size_t first = after.empty() ? 0 : std::stoul(after);
        const size_t last = std::min(first + 2, all.size());
        page.items.assign(all.begin() + static_cast<ptrdiff_t>(first),
                          all.begin() + static_cast<ptrdiff_t>(last));
        page.next = last < all.size() ? std::to_string(last) : "";
        return true;
    }

private:
    Script& script_;
};

class ScriptedCheck : public IncrementCheck {
public:
    explicit ScriptedCheck(Script& script) : script_(script) { ++script_.checks; }
    ~ScriptedCheck() override { --script_.checks; }
    bool check(const std::vector<File>& files, std::vector<bool>& send) override {
        send.assign(files.size(), true);
        return script_.askList();
    }

private:
    Script& script_;
};

class FakeSnapshots : public SnapshotProvider {
public:
    explicit FakeSnapshots(Script& script) : script_(script) {}

    HRESULT begin(int, HANDLE) override { return S_OK; }
    HRESULT supports(const std::wstring& volume, bool& supported) override {
        supported = volume != unsupported;
        return S_OK;
    }
    HRESULT prepare(const std::vector<std::wstring>& volumes, HANDLE end) override {
        volumes_ = volumes;
        if (script_.onSnapshot) {
            script_.onSnapshot();
        }
        script_.snapshotTold = WaitForSingleObject(end, 0) == WAIT_OBJECT_0;
        return script_.note("snapshot", script_.snapshot) ? S_OK
                                                          : static_cast<HRESULT>(GetLastError());
    }
    HRESULT snapshot(std::vector<SnapshotVolume>& made, HANDLE) override {
        for (const std::wstring& volume : volumes_) {
            const auto found = script_.shadows.find(volume);
            if (found != script_.shadows.end()) {
                made.push_back({volume, {}, {}, found->second, 1});
            } else if (script_.shadows.empty()) {
                made.push_back({volume, {}, {}, L"\\\\?\\" + volume, 1});
            }
        }
        return S_OK;
    }
    HRESULT complete() override { return S_OK; }
    const char* step() const override { return "AddToSnapshotSet"; }
    std::wstring volume() const override { return script_.failedVolume; }

    std::wstring unsupported;

private:
    Script& script_;
    std::vector<std::wstring> volumes_;
};

}  // namespace dorvo::test
