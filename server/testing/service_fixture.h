// A server of the test's own in this process, two users that are logged in, and the verbs of a
// backup. Users and sessions are put straight into the catalog: password hashes are slow.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "httpd/testing/client.h"
#include "storage_server.h"
#include "testing/temp_folder.h"

namespace dorvo {

inline constexpr std::string_view filesToBackupPath = "/dorvo/WebServer/catalog/FilesToBackup.php";
inline constexpr std::string_view startJobPath = "/dorvo/WebServer/jobs/StartJob.php";
inline constexpr std::string_view uploadFilePath =
    "/dorvo/Storage%20Server/backupServer/uploadfile.php";
inline constexpr std::string_view uploadBlockPath =
    "/dorvo/Storage%20Server/backupServer/uploadblock.php";
inline constexpr std::string_view addErrorsPath = "/dorvo/WebServer/jobs/AddErrorFiles.php";
inline constexpr std::string_view endJobPath = "/dorvo/Storage%20Server/backupServer/endjob.php";
inline constexpr std::string_view cancelJobPath = "/dorvo/WebServer/jobs/CancelJob.php";
inline constexpr std::string_view listInstancesPath = "/dorvo/WebServer/catalog/ListInstances.php";
inline constexpr std::string_view startRestorePath = "/dorvo/WebServer/jobs/StartRestoreJob.php";
inline constexpr std::string_view fileInfoPath =
    "/dorvo/Storage%20Server/RestoreServer/GetFileInfo.php";
inline constexpr std::string_view downloadPath =
    "/dorvo/Storage%20Server/RestoreServer/DownloadFileBlock.php";
inline constexpr std::string_view historyPath = "/dorvo/WebServer/jobs/RestoreJobHistory.php";
inline constexpr std::string_view listFilesPath = "/dorvo/WebServer/catalog/ListFiles.php";
inline constexpr std::string_view getKeysPath = "/dorvo/WebServer/keys/GetMD5ofKeys.php";
inline constexpr std::string_view exportKeysPath = "/dorvo/WebServer/keys/ExportMD5ofKeys.php";
inline constexpr std::string_view loginPath = "/dorvo/WebServer/user/Login.php";
inline constexpr std::string_view logoutPath = "/dorvo/WebServer/user/Logout.php";
inline constexpr std::string_view formType = "multipart/form-data; boundary=0f-1e";

// A file with its last-write time, for FilesToBackup.
struct Offer {
    std::string path;
    uint32_t mtime = 1;
};

class ServiceFixture : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;
    void again() {
        TearDown();
        SetUp();
    }

    // Stops the server and starts one on the same data; an empty boot means the same boot.
    void restart(const std::string& boot = {});

    // Where requests go.
    [[nodiscard]] virtual uint16_t port() const { return server->port(); }
    // Each on a connection of its own, as the user whose cookie it is.
    Answer post(std::string_view path, std::string_view body) { return postAs(alice, path, body); }
    Answer postAs(const std::string& cookie, std::string_view path, std::string_view body,
                  std::string_view contentType = "application/json") const;

    Answer ask(std::string_view path, const boost::json::object& body,
               const std::string& cookie = {});
    // What both reads of a restore ask for.
    static boost::json::object place(const std::string& instance, const std::string& name,
                                     const std::string& folder = "",
                                     const std::string& block = "1");
    int read(const std::string& instance, const std::string& name, int64_t block = 1);

    // The paths that are to be sent, joined with commas; "<status>" when it is refused.
    std::string offer(const std::string& instance, const std::vector<Offer>& files,
                      const std::string& definition = "job", const std::string& cookie = {},
                      bool first = false);
    int start(const std::string& instance, const std::string& definition = "job");
    int putInfo(const std::string& instance, const std::string& path, uint64_t size,
                uint32_t mtime = 1);
    int putBlock(const std::string& instance, const std::string& path, int64_t number,
                 std::string_view data);
    // Information and all blocks; each must be answered 200.
    void put(const std::string& instance, const std::string& path, std::string_view data,
             uint32_t mtime = 1);
    // Starts it and puts that file, or the first of its files.
    void run(const std::string& instance, const std::string& path, std::string_view data,
             uint32_t mtime = 1);
    int addError(const std::string& instance, const std::string& path);
    int end(const std::string& instance) { return endJob(instance).status; }
    Answer endJob(const std::string& instance);
    int cancel(const std::string& instance);
    // A whole backup of these files, each with its path as content.
    void backup(const std::string& instance, const std::vector<Offer>& files);

    // The first column of the query's first row, straight from the database.
    std::string column(const std::string& sql);
    // Changes the database behind the server's back.
    void change(const std::string& sql) const;
    // Of one of the first containers.
    [[nodiscard]] std::filesystem::path package(int number) const;
    // The package's stored blocks; "none" when the instance has no such file.
    std::string stored(const std::string& instance, const std::string& path);
    // The instance's state in the list, "" when it isn't listed.
    std::string state(const std::string& instance);
    // Everything that the server keeps of backups: all rows of all tables, all bytes of all
    // packages.
    std::string everything();

    const std::string alice = "DORVOSESSION=" + std::string(64, 'a');
    const std::string bob = "DORVOSESSION=" + std::string(64, 'b');
    const std::string laptop = "DORVOSESSION=" + std::string(64, 'c');  // alice's second machine

    ServerOptions options;
    std::unique_ptr<StorageServer> server;
    std::optional<TempFolder> folder;
    std::filesystem::path data;
};

std::string fileInfo(const std::string& instance, const std::string& path, uint64_t size,
                     uint32_t mtime = 1);
std::string folderInfo(const std::string& instance, const std::string& path);
std::string blockForm(const std::string& instance, const std::string& path,
                      const std::string& fileName, std::string_view data, const std::string& md5);

std::string contentOf(const std::filesystem::path& file);

// The MD5 of the bytes as 32 lower-case hexadecimal digits.
std::string md5Text(std::string_view bytes);

// Bytes that differ from place to place.
std::string pattern(size_t size, unsigned seed = 1);

}  // namespace dorvo
