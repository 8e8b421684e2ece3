// A file system of the tests' own for walks, and a walker that writes down what it is told.
#pragma once

#include <algorithm>
#include <map>
#include <string>
#include <vector>

#include "source/filterpolicy.h"
#include "source/sourcewalk.h"

namespace dorvo::test {

// Folders by path, each with its entries in the order in which they are yielded, after "." and
// "..". Counts the searches that are open.
class FakeFiles : public SourceFileSystem {
public:
    struct Entry {
        std::wstring name;
        DWORD attributes = FILE_ATTRIBUTE_NORMAL;
        uint64_t size = 0;
        DWORD tag = 0;  // of a reparse point
    };

    void add(const std::wstring& folder, Entry entry) {
        folders_[folder];
        if ((entry.attributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
            folders_[join(folder, entry.name)];
        }
        folders_[folder].push_back(std::move(entry));
    }
    void addFile(const std::wstring& folder, const std::wstring& name, uint64_t size = 0) {
        add(folder, {name, FILE_ATTRIBUTE_NORMAL, size});
    }
    void addFolder(const std::wstring& folder, const std::wstring& name) {
        add(folder, {name, FILE_ATTRIBUTE_DIRECTORY, 0});
    }

    bool attributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) override {
        for (const auto& [folder, entries] : folders_) {
            for (const Entry& entry : entries) {
                if (join(folder, entry.name) == path) {
                    data = {entry.attributes, {}, {}, written(), high(entry), low(entry)};
                    return true;
                }
            }
        }
        if (folders_.contains(path)) {
            data = {FILE_ATTRIBUTE_DIRECTORY, {}, {}, {}, 0, 0};
            return true;
        }
        SetLastError(ERROR_FILE_NOT_FOUND);
        return false;
    }
    bool targetAttributes(const std::wstring& path, WIN32_FILE_ATTRIBUTE_DATA& data) override {
        if (path == dangling) {
            SetLastError(ERROR_PATH_NOT_FOUND);
            return false;
        }
        const bool found = attributes(path, data);
        data.dwFileAttributes &= ~DWORD{FILE_ATTRIBUTE_REPARSE_POINT};
        return found;
    }
    HANDLE findFirst(const std::wstring& pattern, WIN32_FIND_DATAW& entry) override {
        std::wstring folder = pattern.substr(0, pattern.size() - 1);
        if (!folders_.contains(folder)) {
            folder.pop_back();
        }
        if (folder == unlistable) {
            SetLastError(unlistableError);
            return INVALID_HANDLE_VALUE;
        }
        ++opened;
        ++open_;
        auto* search = new Search{folder, 0};
        findNext(search, entry);
        return search;
    }
    bool findNext(HANDLE handle, WIN32_FIND_DATAW& entry) override {
        auto& search = *static_cast<Search*>(handle);
        const size_t at = search.next++;
        entry = {};
        if (at < 2) {
            entry.dwFileAttributes = FILE_ATTRIBUTE_DIRECTORY;
            std::wstring(at + 1, L'.').copy(entry.cFileName, 2);
            return true;
        }
        const auto& entries = folders_[search.folder];
        if (search.folder == breaking && at - 2 == breaksAt) {
            SetLastError(ERROR_CRC);
            return false;
        }
        if (at - 2 >= entries.size()) {
            SetLastError(ERROR_NO_MORE_FILES);
            return false;
        }
        const Entry& found = entries[at - 2];
        entry.dwFileAttributes = found.attributes;
        entry.ftLastWriteTime = written();
        entry.nFileSizeHigh = high(found);
        entry.nFileSizeLow = low(found);
        entry.dwReserved0 = found.tag;
        found.name.copy(entry.cFileName, MAX_PATH - 1);
        return true;
    }
    void findClose(HANDLE handle) override {
        --open_;
        delete static_cast<Search*>(handle);
    }

    int open() const { return open_; }
    static FILETIME written() { return {7, 8}; }

    std::wstring unlistable;  // the folder that cannot be listed
    DWORD unlistableError = ERROR_ACCESS_DENIED;
    std::wstring dangling;  // a link that leads nowhere
    std::wstring breaking;  // the folder whose enumeration fails after `breaksAt` entries
    size_t breaksAt = 0;
    int opened = 0;

private:
    struct Search {
        std::wstring folder;
        size_t next;
    };

    static std::wstring join(const std::wstring& folder, const std::wstring& name) {
        return folder.back() == L'\\' ? folder + name : folder + L"\\" + name;
    }
    static DWORD high(const Entry& entry) { return static_cast<DWORD>(entry.size >> 32); }
    static DWORD low(const Entry& entry) { return static_cast<DWORD>(entry.size); }

    std::map<std::wstring, std::vector<Entry>> folders_;
    int open_ = 0;
};

class Recorder : public SourceCalculator {
public:
    std::vector<std::wstring> paths;
    std::vector<DWORD> attributes;

protected:
    void processFile(const wchar_t* path, const WIN32_FILE_ATTRIBUTE_DATA& data) override {
        SourceCalculator::processFile(path, data);
        paths.emplace_back(path);
        attributes.push_back(data.dwFileAttributes);
    }
};

// Accepts some names, and writes down what it was asked.
class NameFilter : public FilterPolicy {
public:
    explicit NameFilter(std::vector<std::wstring> accepted) : accepted_(std::move(accepted)) {}
    bool isInclude(const wchar_t* name) override {
        asked.emplace_back(name);
        return std::find(accepted_.begin(), accepted_.end(), name) != accepted_.end();
    }

    std::vector<std::wstring> asked;

private:
    std::vector<std::wstring> accepted_;
};

}  // namespace dorvo::test
