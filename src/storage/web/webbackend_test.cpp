#include "support/scripted_service.h"
// The sockets' header comes before the others.
#include "storage/web/webbackend.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "json_spirit/json_spirit.h"
#include "settings/cookiemanager.h"
#include "settings/options.h"
#include "support/store_test.h"

namespace dorvo {
namespace {

constexpr const char* oneInstance =
    R"({"instances": [{"machine": "PC", "jobdefinitionid": "d", "jobinstanceid": "i",)"
    R"( "starttime": "2026-01-02 03:04:05", "endtime": "", "state": "running", "totalfiles": 3,)"
    R"( "totaldirectories": 2, "totalsize": 5000000000, "errors": 1}]})";

json_spirit::Value parsed(const std::string& text) {
    json_spirit::Value value;
    json_spirit::read_or_throw(text, value);
    return value;
}

// The page with a run of that id.
std::string pageOf(const std::string& id, const std::string& next) {
    json_spirit::Object page = parsed(oneInstance).get_obj();
    json_spirit::Object run = page.at("instances").get_array().front().get_obj();
    run["jobinstanceid"] = id;
    return json_spirit::write(json_spirit::Value(
        json_spirit::Object{{"instances", json_spirit::Array{run}}, {"next", next}}));
}

class WebAccountPages : public test::StoreTest {
protected:
    // The service answers with these, over and over for a while. The error, 0 for none.
    DWORD list(std::vector<std::string> answers, std::vector<StoredInstance>& instances) {
        size_t asked = 0;
        test::ScriptedService service([&](const test::Seen&) {
            constexpr size_t patience = 30;
            return asked < patience ? test::Answer{.body = answers[asked++ % answers.size()]}
                                    : test::Answer{.status = "403 Forbidden"};
        });
        test::singleton<OptionsImpl>().setServerInfo("s", "127.0.0.1", service.port());
        test::singleton<CookieManagerImpl>().saveCookie("carol", "c");
        const bool listed = WebBackend("carol").runs("PC", "", instances);
        const DWORD error = listed ? ERROR_SUCCESS : GetLastError();
        asked_.clear();
        for (const test::Seen& seen : service.seen()) {
            asked_ +=
                json_spirit::object_get_str_or_throw(parsed(seen.body).get_obj(), "after") + ",";
        }
        return error;
    }

    std::string asked_;
};

TEST_F(WebAccountPages, AreReadToTheirEnd) {
    std::vector<StoredInstance> instances;
    ASSERT_EQ(list({pageOf("1", "a"), pageOf("2", "b"), pageOf("3", "")}, instances), 0U);
    ASSERT_EQ(instances.size(), 3U);
    EXPECT_EQ(instances[0].jobInstanceId + instances[2].jobInstanceId, "13");
    EXPECT_EQ(asked_, ",a,b,");
    ASSERT_EQ(list({oneInstance}, instances), 0U);  // a service without pages
    EXPECT_EQ(instances.size(), 1U);
    EXPECT_EQ(asked_, ",");
}

TEST_F(WebAccountPages, ThatLeadNowhereEndTheListing) {
    for (const std::vector<std::string>& answers :
         {std::vector<std::string>{pageOf("1", "a"), pageOf("2", "a")},
          {pageOf("1", "a"), pageOf("2", "b"), pageOf("3", "c")},
          {pageOf("1", "a"), R"({"instances":[],"next":"b"})"},
          {pageOf("1", "a"), R"({"instances":[],"next":1})"}}) {
        std::vector<StoredInstance> instances(7);
        EXPECT_EQ(list(answers, instances), DWORD{ERROR_INVALID_DATA});
        EXPECT_EQ(instances.size(), 7U);
    }
}

}  // namespace
}  // namespace dorvo
