#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/web/webrestorecatalog.h"

#include <gtest/gtest.h>

#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "support/fails_with.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

using test::Answer;
using test::Seen;

class WebRestoreCatalogTest : public test::StoreTest {
protected:
    WebRestoreCatalogTest()
        : service_([this](const Seen&) { return answer_; }),
          catalog_("carol", {"PC", "", "inst"}, nullptr, stop_.handle()) {
        test::singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
        test::singleton<CookieManagerImpl>().saveCookie("carol", "c");
    }

    test::Signal stop_;
    Answer answer_;
    test::ScriptedService service_;
    WebRestoreCatalog catalog_;
    RestoreCatalog::Page page_;
};

TEST_F(WebRestoreCatalogTest, FailsWithTheReasonAndKeepsThePage) {
    const std::pair<Answer, DWORD> rows[] = {
        {{"404 Not Found"}, 0x20010194},
        {{}, ERROR_INVALID_DATA},
        {{.body = "no JSON"}, ERROR_INVALID_DATA},
        {{.body = R"({"source":[],"next":"C:\\a"})"}, ERROR_INVALID_DATA},  // leads nowhere
    };
    for (const auto& [answer, error] : rows) {
        SCOPED_TRACE(answer.body);
        answer_ = answer;
        page_.next = "old";
        EXPECT_FAILS(error, catalog_.list(L"", "C:\\a", page_));
        EXPECT_EQ(page_.next, "old");
    }
    service_.forget();
    stop_.set();
    EXPECT_FAILS(ERROR_CANCELLED, catalog_.list(L"", "", page_));
    WebRestoreCatalog nobodys("nobody", {"PC", "", "inst"}, nullptr, nullptr);
    EXPECT_FAILS(0x20010191u, nobodys.list(L"", "", page_));
    EXPECT_TRUE(service_.seen().empty());
}

}  // namespace
}  // namespace dorvo
