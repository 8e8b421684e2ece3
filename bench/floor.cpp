// floor [--ahead] HOST PORT USER PASSWORD JOB DIR: the least that a backup of DIR can be on this
// platform. It walks, asks which files changed, and for each of those reads, deflates (level 6,
// what does not shrink is stored, as the agent's compressor does), encrypts (AES-128-CBC), takes
// the MD5 of the blocks and sends the same requests as the agent over one socket. Nothing is
// recorded, resumed or reported. Prints files, bytes and seconds. JOB is the job's id on the
// server: a second run under the same id is a run over an unchanged tree.
//
// One thread does it all, one request at a time, each package through a temporary file. With
// --ahead packages stay in memory, two threads encode, and the next request is written before the
// last is answered, up to Pipe::depth of them.
#include "floor_client.h"
// The header brings winsock2.h, which stands before all others of Windows.
#include <openssl/evp.h>
#include <rpc.h>

#include <algorithm>
#include <boost/json/src.hpp>
#include <memory>
#include <optional>
#include <unordered_map>
#include <vector>

#include "floor_codec.h"
#include "floor_pipe.h"

namespace dorvo::bench {
namespace {

constexpr std::size_t batchSize = 1000;

struct Entry {
    std::wstring path;
    WIN32_FIND_DATAW data;
    bool folder() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

// The packages of files, made by threads of its own before they are asked for, in their order.
class Encoders {
public:
    explicit Encoders(std::vector<std::wstring> paths) : paths_(std::move(paths)) {
        packages_.resize(paths_.size());
        for (std::thread& thread : threads_)
            thread = std::thread([this] { work(); });
    }
    Encoders(const Encoders&) = delete;
    Encoders& operator=(const Encoders&) = delete;
    // What was not asked for is not made any more.
    ~Encoders() {
        monitor_.locked([this] { begun_ = paths_.size(); });
        for (std::thread& thread : threads_)
            thread.join();
    }

    bool ready() {
        return monitor_.locked([this] { return packages_.at(taken_).has_value(); });
    }

    std::string next() {
        return monitor_.when(
            [this] {
                if (failure_)
                    std::rethrow_exception(failure_);
                return packages_.at(taken_).has_value();
            },
            [this] {
                std::string package = std::move(*packages_.at(taken_));
                packages_.at(taken_++).reset();
                held_ -= package.size();
                return package;
            });
    }

private:
    static constexpr std::size_t most = std::size_t{64} << 20U;  // bytes that wait to be asked for

    void work() {
        try {
            Encoder encoder;
            while (const std::optional<std::size_t> file = begin()) {
                std::string package;
                encoder.encode(paths_.at(*file), [&](const unsigned char* data, std::size_t size) {
                    package.append(reinterpret_cast<const char*>(data), size);
                });
                monitor_.locked([&] {
                    held_ += package.size();
                    packages_.at(*file) = std::move(package);
                });
            }
        } catch (...) {
            monitor_.locked([this] { failure_ = std::current_exception(); });
        }
    }

    // The next file, when there is room for it or it is waited for.
    std::optional<std::size_t> begin() {
        return monitor_.when(
            [this] { return begun_ >= paths_.size() || begun_ == taken_ || held_ < most; },
            [this] {
                return begun_ < paths_.size() ? std::optional(begun_++)
                                              : std::optional<std::size_t>();
            });
    }

    std::vector<std::wstring> paths_;
    Monitor monitor_;  // guards all below but the threads
    std::vector<std::optional<std::string>> packages_;
    std::size_t begun_ = 0, taken_ = 0, held_ = 0;
    std::exception_ptr failure_;
    std::array<std::thread, 2> threads_;
};

class Backup {
public:
    Backup(Client& client, std::string job, bool ahead)
        : client_(client), job_(std::move(job)), instance_(uuid()), ahead_(ahead) {}
    Backup(const Backup&) = delete;
    Backup& operator=(const Backup&) = delete;
    ~Backup() { EVP_MD_CTX_free(digest_); }

    void run(const std::wstring& root) {
        walk(root);
        ask();
        client_.post("WebServer/jobs/StartJob.php", {{"jobdefinitionid", job_},
                                                     {"jobinstanceid", instance_},
                                                     {"totaldirectories", folders},
                                                     {"totalfiles", files},
                                                     {"totalsize", bytes},
                                                     {"starttime", "2020-01-01 00:00:00"}});
        if (ahead_)
            sendAhead();
        else
            for (const Entry& entry : toSend_)
                send(entry);
        client_.post("Storage%20Server/backupServer/endjob.php",
                     {{"jobinstanceid", instance_}, {"endtime", "2020-01-01 00:00:00"}});
    }

    std::uint64_t folders = 0, files = 0, bytes = 0, sentFiles = 0;

private:
    static constexpr const char* informing = "Storage%20Server/backupServer/uploadfile.php";

    static std::string uuid() {
        UUID id;
        if (UuidCreate(&id) != RPC_S_OK)
            fail("no instance id");
        RPC_CSTR text = nullptr;
        if (UuidToStringA(&id, &text) != RPC_S_OK)
            fail("no instance id");
        std::string out = reinterpret_cast<char*>(text);
        RpcStringFreeA(&text);
        return out;
    }

    void walk(const std::wstring& folder) {
        WIN32_FIND_DATAW data;
        HANDLE find = FindFirstFileExW((folder + L"\\*").c_str(), FindExInfoBasic, &data,
                                       FindExSearchNameMatch, nullptr, 0);
        if (find == INVALID_HANDLE_VALUE)
            fail("cannot list " + utf8(folder));
        std::vector<std::wstring> below;
        do {
            const std::wstring name = data.cFileName;
            if (name == L"." || name == L"..")
                continue;
            Entry entry{folder + L"\\" + name, data};
            if (entry.folder()) {
                ++folders;
                below.push_back(entry.path);
                toSend_.push_back(std::move(entry));
            } else {
                ++files;
                bytes += size(data);
                batch_.push_back(std::move(entry));
                if (batch_.size() == batchSize)
                    ask();
            }
        } while (FindNextFileW(find, &data));
        FindClose(find);
        for (const std::wstring& next : below)
            walk(next);
    }

    static std::uint64_t size(const WIN32_FIND_DATAW& data) {
        return std::uint64_t{data.nFileSizeHigh} << 32 | data.nFileSizeLow;
    }

    // The increment check of one batch.
    void ask() {
        if (batch_.empty())
            return;
        json::array source;
        std::unordered_map<std::string, std::size_t> index;
        for (std::size_t i = 0; i < batch_.size(); ++i) {
            const FILETIME& time = batch_[i].data.ftLastWriteTime;
            std::string path = utf8(batch_[i].path);
            source.push_back({{"path", path},
                              {"mtimeHigh", time.dwHighDateTime},
                              {"mtimeLow", time.dwLowDateTime}});
            index.emplace(std::move(path), i);
        }
        const std::string text =
            client_.post("WebServer/catalog/FilesToBackup.php", {{"id", job_},
                                                                 {"jobinstanceid", instance_},
                                                                 {"compress", true},
                                                                 {"source", std::move(source)}});
        const json::value answer = json::parse(text);
        for (const json::value& item : answer.at("source").as_array())
            toSend_.push_back(
                std::move(batch_[index.at(std::string(item.at("path").as_string()))]));
        batch_.clear();
    }

    void send(const Entry& entry) {
        const std::uint64_t packed = entry.folder() ? 0 : encode(entry.path);
        client_.post(informing, information(entry, packed));
        if (entry.folder())
            return;
        ++sentFiles;
        sendBlocks(utf8(entry.path));
    }

    // Source to temporary file; gives the package's size.
    std::uint64_t encode(const std::wstring& path) {
        HANDLE out = openFile(temporary_.path(), GENERIC_WRITE, CREATE_ALWAYS);
        std::uint64_t written = 0;
        encoder_.encode(path, [&](const unsigned char* data, std::size_t size) {
            written += write(out, data, size);
        });
        CloseHandle(out);
        return written;
    }

    void sendBlocks(const std::string& path) {
        HANDLE package = openFile(temporary_.path(), GENERIC_READ, OPEN_EXISTING);
        DWORD got = 0;
        for (std::size_t number = 1;
             ReadFile(package, block_.data(), static_cast<DWORD>(block_.size()), &got, nullptr) &&
             got != 0;
             ++number) {
            sendBlock(client_, path, number, {block_.data(), got});
        }
        CloseHandle(package);
    }

    void sendAhead() {
        std::vector<std::wstring> paths;
        for (const Entry& entry : toSend_)
            if (!entry.folder())
                paths.push_back(entry.path);
        Encoders encoders(std::move(paths));
        Pipe pipe(client_);
        for (const Entry& entry : toSend_) {
            std::string package;
            if (!entry.folder()) {
                if (!encoders.ready())
                    pipe.flush();
                package = encoders.next();
                ++sentFiles;
            }
            pipe.post(informing, information(entry, package.size()));
            for (std::size_t at = 0; at < package.size(); at += blockSize)
                sendBlock(pipe, utf8(entry.path), at / blockSize + 1,
                          std::string_view(package).substr(at, blockSize));
        }
        pipe.drain();
    }

    json::object information(const Entry& entry, std::uint64_t packed) const {
        const WIN32_FIND_DATAW& d = entry.data;
        return {{"attri",
                 {{"dwFileAttributes", d.dwFileAttributes},
                  {"nFileSizeHigh", d.nFileSizeHigh},
                  {"nFileSizeLow", d.nFileSizeLow},
                  {"ftCreationTimedwHighDateTime", d.ftCreationTime.dwHighDateTime},
                  {"ftCreationTimedwLowDateTime", d.ftCreationTime.dwLowDateTime},
                  {"ftLastAccessTimedwHighDateTime", d.ftLastAccessTime.dwHighDateTime},
                  {"ftLastAccessTimedwLowDateTime", d.ftLastAccessTime.dwLowDateTime},
                  {"ftLastWriteTimedwHighDateTime", d.ftLastWriteTime.dwHighDateTime},
                  {"ftLastWriteTimedwLowDateTime", d.ftLastWriteTime.dwLowDateTime}}},
                {"type", entry.folder() ? "folder" : "file"},
                {"jobinstanceid", instance_},
                {"sourcename", utf8(entry.path)},
                {"totalsizeHigh", packed >> 32},
                {"totalsizeLow", packed & 0xffffffff},
                {"totalblock", packed / blockSize + (entry.folder() ? 0 : 1)}};
    }

    template <class To>
    void sendBlock(To& to, const std::string& path, std::size_t number, std::string_view block) {
        const std::string boundary = uuid();
        std::string prefix;
        const auto field = [&](const char* name, const std::string& value) {
            prefix.append("--").append(boundary).append("\r\n");
            prefix.append("Content-Disposition: form-data; name=\"").append(name);
            prefix.append("\"\r\n\r\n").append(value).append("\r\n");
        };
        field("md5", md5(block));
        field("jobinstanceid", instance_);
        field("sourcename", path);
        prefix.append("--").append(boundary).append("\r\n");
        prefix.append("Content-Disposition: form-data; name=\"file\"; filename=\"");
        prefix.append(std::to_string(number)).append(".jpg\"\r\nContent-Type: image/pjpeg\r\n");
        prefix.append("Content-Transfer-Encoding: binary\r\n\r\n");
        std::string suffix = "\r\n--";
        suffix.append(boundary).append("\r\nContent-Disposition: form-data; name=\"submit\"");
        suffix.append("\r\n\r\nSubmit\r\n--").append(boundary).append("--\r\n");
        to.post("Storage%20Server/backupServer/uploadblock.php",
                "multipart/form-data; boundary=" + boundary, prefix, block, suffix);
    }

    std::string md5(std::string_view block) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
        unsigned int length = 0;
        EVP_DigestInit_ex(digest_, EVP_md5(), nullptr);
        EVP_DigestUpdate(digest_, block.data(), block.size());
        EVP_DigestFinal_ex(digest_, hash.data(), &length);
        std::string text;
        for (unsigned int i = 0; i < length; ++i) {
            text += "0123456789abcdef"[hash[i] >> 4];
            text += "0123456789abcdef"[hash[i] & 15];
        }
        return text;
    }

    Client& client_;
    std::string job_, instance_;
    bool ahead_;
    TemporaryFile temporary_;
    Encoder encoder_;
    std::vector<Entry> batch_, toSend_;
    EVP_MD_CTX* digest_ = EVP_MD_CTX_new();
    std::vector<char> block_ = std::vector<char>(blockSize);
};

}  // namespace
}  // namespace dorvo::bench

int main(int count, char** arguments) {
    using namespace dorvo::bench;
    return runFloor(count, arguments, 6, [](Client& client, char** given, bool ahead) {
        Backup backup(client, given[5], ahead);
        backup.run(wide(given[6], CP_ACP));
        return std::to_string(backup.files) + " files, " + std::to_string(backup.bytes) +
               " bytes, " + std::to_string(backup.sentFiles) + " sent";
    });
}
