#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/web/webbackend.h"

#include <gtest/gtest.h>

#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "support/fails_with.h"
#include "support/log_capture.h"
#include "support/signal.h"
#include "support/store_test.h"

namespace dorvo::test {
namespace {

// A page with a run of that id.
std::string pageOf(const std::string& id, const std::string& next) {
    return R"({"instances": [{"machine": "PC", "jobdefinitionid": "d", "jobinstanceid": ")" + id +
           R"(", "starttime": "2026-01-02 03:04:05", "endtime": "", "state": "running",)" +
           R"( "totalfiles": 3, "totaldirectories": 2, "totalsize": 5, "errors": 1}])" +
           (next.empty() ? "" : R"(, "next": ")" + next + "\"") + "}";
}

class WebBackendTest : public StoreTest {
protected:
    WebBackendTest() {
        singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
        singleton<CookieManagerImpl>().saveCookie("carol", "c");
    }
    ~WebBackendTest() override { singleton<CookieManagerImpl>().removeAllCookie(); }

    // The error of listing the runs, 0 for none.
    DWORD list() {
        service_.forget();
        const bool listed = WebBackend("carol").runs("PC", "", found_);
        const DWORD error = listed ? ERROR_SUCCESS : GetLastError();
        asked_.clear();
        for (const Seen& seen : service_.seen()) {
            json_spirit::Value body;
            json_spirit::read_or_throw(seen.body, body);
            asked_ += body.get_obj().at("after").get_str() + ",";
        }
        return error;
    }

    std::vector<Answer> answers_;  // over and over, for a while
    ScriptedService service_{[this](const Seen&) {
        constexpr size_t patience = 30;
        const size_t asked = service_.seen().size() - 1;
        return asked < patience ? answers_[asked % answers_.size()] : Answer{"403 Forbidden"};
    }};
    std::vector<StoredInstance> found_;
    std::string asked_;
};

TEST_F(WebBackendTest, ReadsPagesOfRunsToTheirEnd) {
    answers_ = {{.body = pageOf("1", "a")}, {.body = pageOf("2", "b")}, {.body = pageOf("3", "")}};
    ASSERT_EQ(list(), 0U);
    ASSERT_EQ(found_.size(), 3U);
    EXPECT_EQ(found_[0].jobInstanceId + found_[2].jobInstanceId, "13");
    EXPECT_EQ(asked_, ",a,b,");
}

TEST_F(WebBackendTest, PagesThatLeadNowhereEndTheListing) {
    const Answer first{.body = pageOf("1", "a")};
    found_.resize(7);
    for (const std::vector<Answer>& answers : std::vector<std::vector<Answer>>{
             {first, {.body = pageOf("2", "a")}},
             {first, {.body = pageOf("2", "b")}, {.body = pageOf("3", "c")}},
             {first, {.body = R"({"instances":[],"next":"b"})"}},
             {first, {.body = R"({"instances":[],"next":1})"}}}) {
        answers_ = answers;
        EXPECT_EQ(list(), DWORD{ERROR_INVALID_DATA});
        EXPECT_EQ(found_.size(), 7U);
    }
}

TEST_F(WebBackendTest, ACatalogFailsWithTheReasonAndKeepsThePage) {
    const std::pair<Answer, DWORD> rows[] = {
        {{"404 Not Found"}, 0x20010194},
        {{}, ERROR_INVALID_DATA},
        {{.body = "no JSON"}, ERROR_INVALID_DATA},
        {{.body = R"({"source":[],"next":"C:\\a"})"}, ERROR_INVALID_DATA},  // leads nowhere
    };
    const Signal stop;
    const auto catalog = WebBackend("carol").catalog({"PC", "", "inst"}, nullptr, stop.handle());
    RestoreCatalog::Page page;
    page.next = "old";
    const auto lists = [&](RestoreCatalog& from) { return from.list(L"", "C:\\a", page); };
    for (const auto& [answer, error] : rows) {
        SCOPED_TRACE(answer.body);
        answers_ = {answer};
        EXPECT_FAILS(error, lists(*catalog));
        EXPECT_EQ(page.next, "old");
    }
    service_.forget();
    SetEvent(stop.handle());
    EXPECT_FAILS(ERROR_CANCELLED, lists(*catalog));
    const WebBackend nobodys("nobody");
    EXPECT_FAILS(0x20010191u, lists(*nobodys.catalog({"PC", "", "inst"}, nullptr, nullptr)));
    EXPECT_TRUE(service_.seen().empty());
}

}  // namespace
}  // namespace dorvo::test
