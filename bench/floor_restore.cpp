// floor_restore [--ahead] HOST PORT USER PASSWORD JOB TREE TARGET: the least that a restore can be
// on this platform. It lists the job's last backup, which the floor program has made of TREE, and
// for each file below it asks for its information, fetches its blocks over one socket, decrypts and
// inflates them into TARGET, and sets attributes and times. Nothing is recorded, resumed, reported
// or made sure of. Prints folders, files, bytes and seconds.
//
// One thread does it all, one request at a time, each package through a temporary file. With
// --ahead packages stay in memory, two threads decode and place them, and the next request is
// written before the last is answered, up to Pipe::depth of them.
#include "floor_client.h"
// The header brings winsock2.h, which stands before all others of Windows.
#include <algorithm>
#include <atomic>
#include <boost/json/src.hpp>
#include <cstring>
#include <deque>
#include <memory>
#include <vector>

#include "floor_codec.h"
#include "floor_pipe.h"

namespace dorvo::bench {
namespace {

// The attributes of an item as the service sends them.
class Attributes {
public:
    explicit Attributes(const json::value& numbers) : numbers_(numbers) {}

    DWORD flags() const { return number("dwFileAttributes"); }

    void setTimes(HANDLE file) const {
        const FILETIME creation = time("ftCreationTime"), access = time("ftLastAccessTime"),
                       write = time("ftLastWriteTime");
        if (!SetFileTime(file, &creation, &access, &write))
            fail("cannot set times");
    }

private:
    DWORD number(const std::string& name) const {
        return numbers_.at(name).to_number<std::uint32_t>();
    }
    FILETIME time(const std::string& name) const {
        return {number(name + "dwLowDateTime"), number(name + "dwHighDateTime")};
    }

    json::value numbers_;
};

// A file of which blocks are still to come, or which is to be placed.
struct Item {
    std::string path;
    std::wstring target;
    Attributes attributes;
    bool compressed;
    std::uint64_t blocks;
    std::string package{};
};

void placeFile(Decoder& decoder, const Item& item, const auto& read,
               std::atomic<std::uint64_t>& bytes) {
    HANDLE file = openFile(item.target, GENERIC_WRITE, CREATE_ALWAYS);
    bytes += decoder.decode(read, file, item.compressed);
    item.attributes.setTimes(file);
    CloseHandle(file);
    SetFileAttributesW(item.target.c_str(), item.attributes.flags());
}

// Decodes and places packages that lie in memory, with threads of its own.
class Placers {
public:
    Placers() {
        for (std::thread& thread : threads_)
            thread = std::thread([this] { work(); });
    }
    Placers(const Placers&) = delete;
    Placers& operator=(const Placers&) = delete;
    ~Placers() { end(); }

    // Waits while too much waits to be placed.
    void add(Item item) {
        monitor_.when([this] { return held_ < most || failure_; },
                      [&] {
                          held_ += item.package.size();
                          items_.push_back(std::move(item));
                      });
    }

    // Until all is placed; gives the bytes.
    std::uint64_t finish() {
        end();
        if (failure_)
            std::rethrow_exception(failure_);
        return bytes_;
    }

private:
    static constexpr std::size_t most = std::size_t{64} << 20U;

    void end() {
        monitor_.locked([this] { ended_ = true; });
        for (std::thread& thread : threads_)
            if (thread.joinable())
                thread.join();
    }

    void work() {
        try {
            Decoder decoder;
            while (std::optional<Item> item = next()) {
                std::string_view rest = item->package;
                const auto read = [&](unsigned char* data, std::size_t size) {
                    size = std::min(size, rest.size());
                    std::memcpy(data, rest.data(), size);
                    rest.remove_prefix(size);
                    return size;
                };
                placeFile(decoder, *item, read, bytes_);
                monitor_.locked([&] { held_ -= item->package.size(); });
            }
        } catch (...) {
            monitor_.locked([this] { failure_ = std::current_exception(); });
        }
    }

    std::optional<Item> next() {
        return monitor_.when([this] { return !items_.empty() || ended_; },
                             [this] {
                                 std::optional<Item> item;
                                 if (!items_.empty()) {
                                     item = std::move(items_.front());
                                     items_.pop_front();
                                 }
                                 return item;
                             });
    }

    Monitor monitor_;  // guards the next four
    std::deque<Item> items_;
    std::size_t held_ = 0;
    bool ended_ = false;
    std::exception_ptr failure_;
    std::atomic<std::uint64_t> bytes_ = 0;
    std::array<std::thread, 2> threads_;
};

class Restore {
public:
    Restore(Client& client, std::string tree, std::wstring target)
        : client_(client), tree_(std::move(tree)), target_(std::move(target)) {}
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;
    ~Restore() = default;

    void run(const std::string& job, bool ahead) {
        findInstance(job);
        std::vector<std::string> paths = list();
        client_.post("WebServer/jobs/StartRestoreJob.php",
                     {{"jobdefinitionid", job}, {"jobinstanceid", instance_}});
        CreateDirectoryW(target_.c_str(), nullptr);
        if (ahead)
            restoreAhead(paths);
        else
            for (const std::string& path : paths)
                restore(path);
        for (const auto& [path, attributes] : made_)
            dressFolder(path, attributes);
    }

    std::uint64_t files = 0;
    std::atomic<std::uint64_t> bytes = 0;
    std::size_t folders() const { return made_.size(); }

private:
    static constexpr const char* informing = "Storage%20Server/RestoreServer/GetFileInfo.php";
    static constexpr const char* fetching = "Storage%20Server/RestoreServer/DownloadFileBlock.php";
    static constexpr std::size_t md5Size = 32;

    void findInstance(const std::string& job) {
        const json::value found =
            json::parse(client_.post("WebServer/catalog/ListInstances.php",
                                     {{"machine", "floor"}, {"jobdefinitionid", job}}));
        for (const json::value& instance : found.at("instances").as_array())
            if (instance.at("state").as_string() == "completed")
                instance_ = instance.at("jobinstanceid").as_string();
        if (instance_.empty())
            fail("no backup");
    }

    // Below the tree, a folder before what lies in it.
    std::vector<std::string> list() {
        std::vector<std::string> paths;
        std::string after;
        do {
            const json::value page = json::parse(
                client_.post("WebServer/catalog/ListFiles.php", {{"machine", "floor"},
                                                                 {"jobinstanceid", instance_},
                                                                 {"path", ""},
                                                                 {"after", after},
                                                                 {"limit", 1000}}));
            for (const json::value& item : page.at("source").as_array())
                paths.emplace_back(item.at("path").as_string());
            after = page.at("next").as_string();
        } while (!after.empty());
        return paths;
    }

    json::object place(const std::string& path) const {
        const std::size_t split = path.rfind('\\');
        return {{"machine", "floor"},
                {"jobinstanceid", instance_},
                {"path", path.substr(0, split)},
                {"filename", path.substr(split + 1)}};
    }

    // What the answer says of a file; makes a folder, which is then done.
    std::optional<Item> take(const std::string& path, const std::string& answer) {
        const json::value info = json::parse(answer);
        const std::wstring target = target_ + wide(path.substr(tree_.size()), CP_UTF8);
        Attributes attributes(info.at("attri"));
        if (info.at("type").as_string() == "folder") {
            if (!CreateDirectoryW(target.c_str(), nullptr))
                fail("cannot make " + utf8(target));
            made_.emplace_back(target, attributes);
            return {};
        }
        ++files;
        return Item{path, target, attributes, info.at("compress").as_bool(),
                    info.at("totalblock").to_number<std::uint64_t>()};
    }

    void restore(const std::string& path) {
        const std::optional<Item> item = take(path, client_.post(informing, place(path)));
        if (!item)
            return;
        download(*item);
        HANDLE package = openFile(package_.path(), GENERIC_READ, OPEN_EXISTING);
        const auto read = [&](unsigned char* data, std::size_t size) -> std::size_t {
            DWORD got = 0;
            if (!ReadFile(package, data, static_cast<DWORD>(size), &got, nullptr))
                fail("cannot read the package");
            return got;
        };
        placeFile(decoder_, *item, read, bytes);
        CloseHandle(package);
    }

    void download(const Item& item) {
        HANDLE file = openFile(package_.path(), GENERIC_WRITE, CREATE_ALWAYS);
        for (std::uint64_t block = 1; block <= item.blocks; ++block) {
            const std::string answer = client_.post(fetching, blockOf(item, block));
            write(file, answer.data() + md5Size, answer.size() - md5Size);
        }
        CloseHandle(file);
    }

    json::object blockOf(const Item& item, std::uint64_t block) const {
        json::object body = place(item.path);
        body["blockindex"] = std::to_string(block);
        return body;
    }

    // Blocks of the files that are known come before the information of further ones.
    void restoreAhead(const std::vector<std::string>& paths) {
        Placers placers;
        Pipe pipe(client_);
        // The next two are the pipe's to guard.
        std::deque<std::shared_ptr<Item>> known;
        std::size_t unanswered = paths.size();
        const auto answered = [&](const std::string& path, const std::string& answer) {
            std::optional<Item> item = take(path, answer);
            pipe.locked([&] {
                --unanswered;
                if (item)
                    known.push_back(std::make_shared<Item>(std::move(*item)));
            });
        };
        for (auto path = paths.begin();;) {
            pipe.await([&] { return path != paths.end() || !known.empty() || unanswered == 0; });
            const std::shared_ptr<Item> next = pipe.locked([&] {
                std::shared_ptr<Item> item = known.empty() ? nullptr : known.front();
                if (item)
                    known.pop_front();
                return item;
            });
            if (next) {
                fetch(pipe, placers, next);
            } else if (path != paths.end()) {
                pipe.post(informing, place(*path),
                          [&, asked = *path](const std::string& body) { answered(asked, body); });
                ++path;
            } else {
                break;
            }
        }
        pipe.drain();
        bytes += placers.finish();
    }

    // The package goes to the placers with its last block.
    void fetch(Pipe& pipe, Placers& placers, const std::shared_ptr<Item>& item) const {
        for (std::uint64_t block = 1; block <= item->blocks; ++block)
            pipe.post(fetching, blockOf(*item, block),
                      [&placers, item, last = block == item->blocks](const std::string& body) {
                          item->package.append(body, md5Size);
                          if (last)
                              placers.add(std::move(*item));
                      });
    }

    static void dressFolder(const std::wstring& path, const Attributes& attributes) {
        HANDLE folder = CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr,
                                    OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS, nullptr);
        if (folder == INVALID_HANDLE_VALUE)
            fail("cannot open " + utf8(path));
        attributes.setTimes(folder);
        CloseHandle(folder);
    }

    Client& client_;
    std::string tree_, instance_;
    std::wstring target_;
    TemporaryFile package_;
    Decoder decoder_;
    std::vector<std::pair<std::wstring, Attributes>> made_;
};

}  // namespace
}  // namespace dorvo::bench

int main(int count, char** arguments) {
    using namespace dorvo::bench;
    return runFloor(count, arguments, 7, [](Client& client, char** given, bool ahead) {
        Restore restore(client, utf8(wide(given[6], CP_ACP)), wide(given[7], CP_ACP));
        restore.run(given[5], ahead);
        return std::to_string(restore.folders()) + " folders, " + std::to_string(restore.files) +
               " files, " + std::to_string(restore.bytes) + " bytes";
    });
}
