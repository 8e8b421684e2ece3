// floor_restore HOST PORT USER PASSWORD JOB TREE TARGET: the least that a restore can be on this
// platform. One thread lists the job's last backup, which the floor program has made of TREE, and
// for each file below it asks for its information, fetches its blocks over one socket into a
// temporary file, decrypts and inflates that into TARGET, and sets attributes and times. Nothing is
// recorded, resumed, reported or made sure of. Prints folders, files, bytes and seconds.
#include "floor_client.h"
// The header brings winsock2.h, which stands before all others of Windows.
#include <openssl/evp.h>
#include <zlib.h>

#include <boost/json/src.hpp>
#include <vector>

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

class Restore {
public:
    Restore(Client& client, std::string tree, std::wstring target)
        : client_(client), tree_(std::move(tree)), target_(std::move(target)) {}
    Restore(const Restore&) = delete;
    Restore& operator=(const Restore&) = delete;
    ~Restore() { EVP_CIPHER_CTX_free(cipher_); }

    void run(const std::string& job) {
        findInstance(job);
        std::vector<std::string> paths = list();
        client_.post("WebServer/jobs/StartRestoreJob.php",
                     {{"jobdefinitionid", job}, {"jobinstanceid", instance_}});
        CreateDirectoryW(target_.c_str(), nullptr);
        for (const std::string& path : paths)
            restore(path);
        for (const auto& [path, attributes] : made_)
            dressFolder(path, attributes);
    }

    std::uint64_t files = 0, bytes = 0;
    std::size_t folders() const { return made_.size(); }

private:
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

    void restore(const std::string& path) {
        const std::wstring target = target_ + wide(path.substr(tree_.size()), CP_UTF8);
        const std::size_t split = path.rfind('\\');
        json::object place{{"machine", "floor"},
                           {"jobinstanceid", instance_},
                           {"path", path.substr(0, split)},
                           {"filename", path.substr(split + 1)}};
        const json::value info =
            json::parse(client_.post("Storage%20Server/RestoreServer/GetFileInfo.php", place));
        const Attributes attributes(info.at("attri"));
        if (info.at("type").as_string() == "folder") {
            if (!CreateDirectoryW(target.c_str(), nullptr))
                fail("cannot make " + utf8(target));
            made_.emplace_back(target, attributes);
            return;
        }
        download(place, info.at("totalblock").to_number<std::uint64_t>());
        HANDLE file = openFile(target, GENERIC_WRITE, CREATE_ALWAYS);
        decode(file, info.at("compress").as_bool());
        attributes.setTimes(file);
        CloseHandle(file);
        SetFileAttributesW(target.c_str(), attributes.flags());
        ++files;
    }

    void download(json::object& place, std::uint64_t blocks) {
        HANDLE file = openFile(package_.path(), GENERIC_WRITE, CREATE_ALWAYS);
        for (std::uint64_t block = 1; block <= blocks; ++block) {
            constexpr std::size_t md5Size = 32;
            place["blockindex"] = std::to_string(block);
            const std::string answer =
                client_.post("Storage%20Server/RestoreServer/DownloadFileBlock.php", place);
            write(file, answer.data() + md5Size, answer.size() - md5Size);
        }
        CloseHandle(file);
    }

    // Package to plain file.
    void decode(HANDLE out, bool compressed) {
        HANDLE in = openFile(package_.path(), GENERIC_READ, OPEN_EXISTING);
        EVP_DecryptInit_ex(cipher_, EVP_aes_128_cbc(), nullptr, key.data(), iv.data());
        z_stream inflater{};
        inflateInit(&inflater);
        for (DWORD got = 1; got != 0;) {
            if (!ReadFile(in, sealed_.data(), static_cast<DWORD>(sealed_.size()), &got, nullptr))
                fail("cannot read the package");
            int size = 0;
            if (got != 0)
                EVP_DecryptUpdate(cipher_, deflated_.data(), &size, sealed_.data(),
                                  static_cast<int>(got));
            else if (EVP_DecryptFinal_ex(cipher_, deflated_.data(), &size) != 1)
                fail("does not decrypt");
            if (compressed)
                inflateTo(out, inflater, size);
            else
                bytes += write(out, deflated_.data(), static_cast<std::size_t>(size));
        }
        inflateEnd(&inflater);
        CloseHandle(in);
    }

    void inflateTo(HANDLE out, z_stream& inflater, int size) {
        inflater.next_in = deflated_.data();
        inflater.avail_in = static_cast<uInt>(size);
        do {
            inflater.next_out = plain_.data();
            inflater.avail_out = static_cast<uInt>(plain_.size());
            const int result = inflate(&inflater, Z_NO_FLUSH);
            if (result != Z_OK && result != Z_STREAM_END && result != Z_BUF_ERROR)
                fail("does not inflate");
            bytes += write(out, plain_.data(), plain_.size() - inflater.avail_out);
        } while (inflater.avail_out == 0);
    }

    static std::size_t write(HANDLE file, const void* data, std::size_t size) {
        DWORD written = 0;
        if (size != 0 && (!WriteFile(file, data, static_cast<DWORD>(size), &written, nullptr) ||
                          written != size))
            fail("cannot write");
        return size;
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
    std::vector<std::pair<std::wstring, Attributes>> made_;
    EVP_CIPHER_CTX* cipher_ = EVP_CIPHER_CTX_new();
    std::vector<unsigned char> sealed_ = std::vector<unsigned char>(65536),
                               deflated_ = std::vector<unsigned char>(65536 + 32),
                               plain_ = std::vector<unsigned char>(65536);
};

}  // namespace
}  // namespace dorvo::bench

int main(int count, char** arguments) {
    using namespace dorvo::bench;
    if (count != 8) {
        std::cerr << "usage: floor_restore HOST PORT USER PASSWORD JOB TREE TARGET\n";
        return 2;
    }
    return runFloor(arguments, [&](Client& client) {
        Restore restore(client, utf8(wide(arguments[6], CP_ACP)), wide(arguments[7], CP_ACP));
        restore.run(arguments[5]);
        return std::to_string(restore.folders()) + " folders, " + std::to_string(restore.files) +
               " files, " + std::to_string(restore.bytes) + " bytes";
    });
}
