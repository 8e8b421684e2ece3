#include <gtest/gtest.h>

#include <algorithm>
#include <sstream>

#include "base/error_codes.h"
#include "base/machine_name.h"
#include "base/text.h"
#include "contract/contractplace.h"
#include "contract/packagefiles.h"
#include "http_util/http_connections.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "storage/web/web_login.h"
#include "storage/web/webbackend.h"
#include "support/store_test.h"

namespace dorvo::test {
namespace {

struct Server {
    std::string host;
    uint16_t port = 0;
    std::string user;
    std::string password;
    std::string data;
};

class WebContractPlace : public ContractPlace {
public:
    explicit WebContractPlace(Server server) : server_(std::move(server)), backend_(server_.user) {
        singleton<OptionsImpl>().setServerInfo("server", server_.host.c_str(), server_.port);
        std::string cookie;
        if (!singleton<CookieManagerImpl>().findCookie(server_.user.c_str(), cookie)) {
            EXPECT_EQ(Web_Login::login(server_.user, server_.password, nullptr),
                      Web_Login::End::done);
        }
        EXPECT_TRUE(machineName(machine_));
    }
    ~WebContractPlace() override { ATL::CComSingleton<HTTP_Connections>::instance()->stop(); }

    const Backend& backend() const override { return backend_; }
    const char* machine() const override { return machine_.c_str(); }
    // The service numbers the instances, and names their files so.
    void damage(const StoredRun&) override {
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
    std::vector<std::filesystem::path> packages() const {
        return packageFiles(toWide(server_.data), L".pkg");
    }

    Server server_;
    std::string machine_;
    const WebBackend backend_;
};

}  // namespace

NamedPlace webPlace(const std::string& text) {
    Server server;
    std::istringstream lines(text);
    std::string port;
    for (std::string* line : {&server.host, &port, &server.user, &server.password, &server.data}) {
        std::getline(lines, *line);
    }
    server.port = static_cast<uint16_t>(std::stoi(port));
    return {"Web", [server] { return std::make_unique<WebContractPlace>(server); }};
}

}  // namespace dorvo::test
