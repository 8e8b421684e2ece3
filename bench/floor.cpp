// floor HOST PORT USER PASSWORD JOB DIR: the least that a backup of DIR can be on this platform.
// One thread walks, asks which files changed, and for each of those reads, deflates (level 6, what
// does not shrink is stored, as the agent's compressor does), encrypts (AES-128-CBC), writes a
// temporary file, reads it back in blocks, takes their MD5 and sends the same requests as the agent
// over one socket. Nothing is recorded, resumed or reported. Prints files, bytes and seconds. JOB
// is the job's id on the server: a second run under the same id is a run over an unchanged tree.
#include "floor_client.h"
// The header brings winsock2.h, which stands before all others of Windows.
#include <openssl/evp.h>
#include <rpc.h>
#include <zlib.h>

#include <algorithm>
#include <boost/json/src.hpp>
#include <unordered_map>
#include <vector>

namespace dorvo::bench {
namespace {

constexpr std::size_t batchSize = 1000;

struct Entry {
    std::wstring path;
    WIN32_FIND_DATAW data;
    bool folder() const { return (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0; }
};

// Which level the next block of a file deserves: after one that did not shrink, ever more blocks
// (up to 128) are stored before the next try.
class NoiseDetector {
public:
    int level() const { return stored_ < skip_ ? 0 : 6; }

    void saw(std::uint64_t in, std::uint64_t out) {
        if (level() == 0) {
            ++stored_;
        } else if (out >= in) {
            skip_ = skip_ == 0 ? 1 : std::min(2 * skip_, 128);
            stored_ = 0;
        } else {
            skip_ = stored_ = 0;
        }
    }

private:
    int skip_ = 0, stored_ = 0;
};

class Backup {
public:
    Backup(Client& client, std::string job) : client_(client), job_(std::move(job)) {
        EVP_CIPHER_CTX_set_padding(cipher_, 1);
        instance_ = uuid();
    }
    Backup(const Backup&) = delete;
    Backup& operator=(const Backup&) = delete;
    ~Backup() {
        EVP_CIPHER_CTX_free(cipher_);
        EVP_MD_CTX_free(digest_);
    }

    void run(const std::wstring& root) {
        walk(root);
        ask();
        client_.post("WebServer/jobs/StartJob.php", {{"jobdefinitionid", job_},
                                                     {"jobinstanceid", instance_},
                                                     {"totaldirectories", folders},
                                                     {"totalfiles", files},
                                                     {"totalsize", bytes},
                                                     {"starttime", "2020-01-01 00:00:00"}});
        for (const Entry& entry : toSend_)
            send(entry);
        client_.post("Storage%20Server/backupServer/endjob.php",
                     {{"jobinstanceid", instance_}, {"endtime", "2020-01-01 00:00:00"}});
    }

    std::uint64_t folders = 0, files = 0, bytes = 0, sentFiles = 0;

private:
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
        const WIN32_FIND_DATAW& d = entry.data;
        const std::string path = utf8(entry.path);
        client_.post("Storage%20Server/backupServer/uploadfile.php",
                     {{"attri",
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
                      {"sourcename", path},
                      {"totalsizeHigh", packed >> 32},
                      {"totalsizeLow", packed & 0xffffffff},
                      {"totalblock", packed / blockSize + (entry.folder() ? 0 : 1)}});
        if (entry.folder())
            return;
        ++sentFiles;
        sendBlocks(path);
    }

    // Source to temporary file; gives the package's size.
    std::uint64_t encode(const std::wstring& path) {
        HANDLE in = openFile(path, GENERIC_READ, OPEN_EXISTING);
        HANDLE out = openFile(temporary_.path(), GENERIC_WRITE, CREATE_ALWAYS);
        EVP_EncryptInit_ex(cipher_, EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
        z_stream deflater{};
        deflateInit(&deflater, 6);
        NoiseDetector noise;
        std::uint64_t written = 0;
        int flush = Z_BLOCK;
        while (flush != Z_FINISH) {
            DWORD got = 0;
            if (!ReadFile(in, plain_.data(), static_cast<DWORD>(plain_.size()), &got, nullptr))
                fail("cannot read " + utf8(path));
            if (got == 0)
                flush = Z_FINISH;
            const uLong before = deflater.total_out;
            deflater.next_out = deflated_.data();
            deflater.avail_out = static_cast<uInt>(deflated_.size());
            deflateParams(&deflater, noise.level(), Z_DEFAULT_STRATEGY);
            deflater.next_in = plain_.data();
            deflater.avail_in = got;
            deflate(&deflater, flush);
            written += seal(out, deflater);
            while (deflater.avail_out == 0) {
                deflater.next_out = deflated_.data();
                deflater.avail_out = static_cast<uInt>(deflated_.size());
                deflate(&deflater, flush);
                written += seal(out, deflater);
            }
            noise.saw(got, deflater.total_out - before);
        }
        deflateEnd(&deflater);
        int size = 0;
        EVP_EncryptFinal_ex(cipher_, sealed_.data(), &size);
        written += write(out, size);
        CloseHandle(in);
        CloseHandle(out);
        return written;
    }

    // Encrypts and writes what the deflater has put out.
    std::uint64_t seal(HANDLE out, const z_stream& deflater) {
        int size = 0;
        EVP_EncryptUpdate(cipher_, sealed_.data(), &size, deflated_.data(),
                          static_cast<int>(deflated_.size() - deflater.avail_out));
        return write(out, size);
    }

    std::uint64_t write(HANDLE out, int size) {
        DWORD done = 0;
        if (size > 0 && !WriteFile(out, sealed_.data(), static_cast<DWORD>(size), &done, nullptr))
            fail("cannot write");
        return done;
    }

    void sendBlocks(const std::string& path) {
        HANDLE package = openFile(temporary_.path(), GENERIC_READ, OPEN_EXISTING);
        DWORD got = 0;
        for (int number = 1;
             ReadFile(package, block_.data(), static_cast<DWORD>(block_.size()), &got, nullptr) &&
             got != 0;
             ++number) {
            sendBlock(path, number, got);
        }
        CloseHandle(package);
    }

    void sendBlock(const std::string& path, int number, std::size_t size) {
        const std::string boundary = uuid();
        std::string prefix;
        const auto field = [&](const char* name, const std::string& value) {
            prefix.append("--").append(boundary).append("\r\n");
            prefix.append("Content-Disposition: form-data; name=\"").append(name);
            prefix.append("\"\r\n\r\n").append(value).append("\r\n");
        };
        field("md5", md5(size));
        field("jobinstanceid", instance_);
        field("sourcename", path);
        prefix.append("--").append(boundary).append("\r\n");
        prefix.append("Content-Disposition: form-data; name=\"file\"; filename=\"");
        prefix.append(std::to_string(number)).append(".jpg\"\r\nContent-Type: image/pjpeg\r\n");
        prefix.append("Content-Transfer-Encoding: binary\r\n\r\n");
        std::string suffix = "\r\n--";
        suffix.append(boundary).append("\r\nContent-Disposition: form-data; name=\"submit\"");
        suffix.append("\r\n\r\nSubmit\r\n--").append(boundary).append("--\r\n");
        client_.post("Storage%20Server/backupServer/uploadblock.php",
                     "multipart/form-data; boundary=" + boundary, prefix, {block_.data(), size},
                     suffix);
    }

    std::string md5(std::size_t size) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> hash;
        unsigned int length = 0;
        EVP_DigestInit_ex(digest_, EVP_md5(), nullptr);
        EVP_DigestUpdate(digest_, block_.data(), size);
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
    TemporaryFile temporary_;
    std::vector<Entry> batch_, toSend_;
    EVP_CIPHER_CTX* cipher_ = EVP_CIPHER_CTX_new();
    EVP_MD_CTX* digest_ = EVP_MD_CTX_new();
    std::vector<unsigned char> plain_ = std::vector<unsigned char>(65536),
                               deflated_ = std::vector<unsigned char>(65536),
                               sealed_ = std::vector<unsigned char>(65536 + 32);
    std::vector<char> block_ = std::vector<char>(blockSize);
};

}  // namespace
}  // namespace dorvo::bench

int main(int count, char** arguments) {
    using namespace dorvo::bench;
    if (count != 7) {
        std::cerr << "usage: floor HOST PORT USER PASSWORD JOB DIR\n";
        return 2;
    }
    return runFloor(arguments, [&](Client& client) {
        Backup backup(client, arguments[5]);
        backup.run(wide(arguments[6], CP_ACP));
        return std::to_string(backup.files) + " files, " + std::to_string(backup.bytes) +
               " bytes, " + std::to_string(backup.sentFiles) + " sent";
    });
}
