#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "base/http_error.h"
#include "base/text.h"
#include "contract/backend.h"
#include "contract/packagefiles.h"
#include "http_util/http_connections.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/web/web_increment_check.h"
#include "storage/web/webaccount.h"
#include "storage/web/webbackupstorage.h"
#include "storage/web/webrestorecatalog.h"
#include "storage/web/webrestorestorage.h"
#include "support/store_test.h"

namespace dorvo::test {
namespace {

constexpr const char* machine = "contract-machine";

struct Server {
    std::string host;
    uint16_t port = 0;
    std::string user;
    std::string password;
    std::string data;
};

class WebBackEnd : public BackEnd {
public:
    explicit WebBackEnd(Server server) : server_(std::move(server)) {
        singleton<OptionsImpl>().setServerInfo("server", server_.host.c_str(), server_.port);
        if (!singleton<CookieManagerImpl>().findCookie(server_.user.c_str(), cookie_)) {
            EXPECT_TRUE(WebAccount::login(serverOfOptions(), server_.user, server_.password,
                                          machine, cookie_));
            singleton<CookieManagerImpl>().saveCookie(server_.user.c_str(), cookie_.c_str());
        }
    }
    ~WebBackEnd() override { ATL::CComSingleton<HTTP_Connections>::instance()->stop(); }

    std::unique_ptr<BackupStorage> backup(const Run& run) override {
        auto web = made<WebBackupStorage::Run>(run);
        web.compress = run.compress;
        web.totals = run.totals;
        return std::make_unique<WebBackupStorage>(std::move(web));
    }
    std::unique_ptr<IncrementCheck> check(const Run& run) override {
        return std::make_unique<Web_Increment_Check>(Web_Increment_Check::Run{
            run.jobId, server_.user, run.instanceId, run.compress, run.stop});
    }
    std::unique_ptr<RestoreStorage> restore(const Restore& restore) override {
        auto web = made<WebRestoreStorage::Run>(restore);
        web.machine = machine;
        web.jobDefinitionId = restore.backupJob;
        web.jobInstanceId = restore.instanceId;
        return std::make_unique<WebRestoreStorage>(std::move(web));
    }
    std::unique_ptr<RestoreCatalog> catalog(const std::string&,
                                            const std::string& instanceId) override {
        return std::make_unique<WebRestoreCatalog>(
            WebRestoreCatalog::Run{machine, instanceId, server_.user, nullptr});
    }
    // The service numbers the instances, and names their files so.
    void damage(const std::string&, const std::string&) override {
        const auto files = packages();
        ASSERT_FALSE(files.empty());
        flipFirstByte(*std::max_element(files.begin(), files.end(), [](auto& a, auto& b) {
            return std::stoull(a.stem().string()) < std::stoull(b.stem().string());
        }));
    }
    uint64_t kept() override { return packageBytes(packages()); }
    DWORD wrongState() const override { return withHttpMark(409); }
    bool namesWhatIsMissing() const override { return true; }

private:
    // With what backups and restores have in common.
    template <class Web>
    Web made(const auto& run) const {
        Web web;
        web.jobId = run.jobId;
        web.jobName = "name";
        web.user = server_.user;
        web.cookie = cookie_;
        web.host = server_.host;
        web.port = server_.port;
        web.key = run.key;
        web.activity = run.activity;
        web.failed = run.failed;
        web.stop = run.stop;
        return web;
    }
    std::vector<std::filesystem::path> packages() const {
        return packageFiles(toWide(server_.data), L".pkg");
    }

    Server server_;
    std::string cookie_;
};

}  // namespace

NamedBackEnd webBackEnd(const std::string& text) {
    Server server;
    std::istringstream lines(text);
    std::string port;
    for (std::string* line : {&server.host, &port, &server.user, &server.password, &server.data}) {
        std::getline(lines, *line);
    }
    server.port = static_cast<uint16_t>(std::stoi(port));
    return {"Web", [server] { return std::make_unique<WebBackEnd>(server); }};
}

}  // namespace dorvo::test
