#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/webrestorecatalog.h"

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

constexpr char item[] =
    R"({"path":"C:\\%P%","type":"folder","attri":{"dwFileAttributes":16,"nFileSizeHigh":0,)"
    R"("nFileSizeLow":0,"ftCreationTimedwHighDateTime":1,"ftCreationTimedwLowDateTime":2,)"
    R"("ftLastAccessTimedwHighDateTime":3,"ftLastAccessTimedwLowDateTime":4,)"
    R"("ftLastWriteTimedwHighDateTime":5,"ftLastWriteTimedwLowDateTime":6}})";

std::string itemOf(const char* name) {
    std::string text = item;
    return text.replace(text.find("%P%"), 3, name);
}

class WebRestoreCatalogTest : public test::StoreTest {
protected:
    WebRestoreCatalogTest()
        : service_([this](const Seen&) { return answer_; }),
          catalog_({"PC", "inst", "carol", stop_.handle()}) {
        test::singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service_.port());
        test::singleton<CookieManagerImpl>().saveCookie("carol", "c");
    }

    test::Signal stop_;
    Answer answer_;
    test::ScriptedService service_;
    WebRestoreCatalog catalog_;
    RestoreCatalog::Page page_;
};

TEST_F(WebRestoreCatalogTest, ListsPageByPage) {
    answer_.body = R"({"source":[)" + itemOf("a") + "," + itemOf("b") + R"(],"next":"C:\\b"})";
    ASSERT_TRUE(catalog_.list(L"C:\\", "", page_));
    EXPECT_EQ(service_.last().endpoint, "ListFiles");
    EXPECT_EQ(service_.last().body,
              R"({"after":"","jobinstanceid":"inst","limit":1000,"machine":"PC","path":"C:"})");
    ASSERT_EQ(page_.items.size(), 2u);
    EXPECT_EQ(page_.items[1].path, L"C:\\b");
    EXPECT_TRUE(page_.items[1].directory());
    EXPECT_EQ(page_.items[1].data.ftLastWriteTime.dwHighDateTime, 5u);
    EXPECT_EQ(page_.items[1].data.ftCreationTime.dwLowDateTime, 2u);
    answer_.body = R"({"source":[],"next":""})";
    ASSERT_TRUE(catalog_.list(L"C:\\", page_.next, page_));
    EXPECT_NE(service_.last().body.find(R"("after":"C:\\b")"), std::string::npos);
    EXPECT_TRUE(page_.items.empty());
    EXPECT_TRUE(page_.next.empty());
}

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
    WebRestoreCatalog nobodys({"PC", "inst", "nobody"});
    EXPECT_FAILS(0x20010191u, nobodys.list(L"", "", page_));
    EXPECT_TRUE(service_.seen().empty());
}

}  // namespace
}  // namespace dorvo
