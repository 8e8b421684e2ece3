#include "storage/webaccount.h"

#include <gtest/gtest.h>

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

TEST(WebAccount, ReadsTheListOfRuns) {
    std::vector<WebInstance> instances;
    ASSERT_TRUE(WebAccount::readInstances(parsed(oneInstance), instances));
    ASSERT_EQ(instances.size(), 1u);
    EXPECT_EQ(instances[0].jobDefinitionId + instances[0].jobInstanceId, "di");
    EXPECT_EQ(instances[0].startTime, "2026-01-02 03:04:05");
    EXPECT_EQ(instances[0].totalSize, 5'000'000'000u);
    EXPECT_EQ(instances[0].errors, 1u);
    ASSERT_TRUE(WebAccount::readInstances(parsed(R"({"instances": []})"), instances));
    EXPECT_TRUE(instances.empty());
}

TEST(WebAccount, RefusesAListOfAnotherShapeAndKeepsWhatItHad) {
    // Each member of a run is needed, and of its own type.
    const json_spirit::Value whole = parsed(oneInstance);
    const json_spirit::Object& run = whole.get_obj().at("instances").get_array().front().get_obj();
    std::vector<json_spirit::Value> bad = {parsed("[]"), parsed("{}"),
                                           parsed(R"({"instances": 1})"),
                                           parsed(R"({"instances": ["x"]})")};
    for (const auto& [name, value] : run) {
        for (const json_spirit::Value& other :
             {json_spirit::Value(), json_spirit::Value(-1), json_spirit::Value(true)}) {
            json_spirit::Object changed = run;
            changed[name] = other;
            bad.emplace_back(json_spirit::Object{{"instances", json_spirit::Array{changed}}});
        }
        json_spirit::Object missing = run;
        missing.erase(name);
        bad.emplace_back(json_spirit::Object{{"instances", json_spirit::Array{missing}}});
    }
    for (const json_spirit::Value& answer : bad) {
        std::vector<WebInstance> instances(1);
        EXPECT_FALSE(WebAccount::readInstances(answer, instances)) << json_spirit::write(answer);
        EXPECT_EQ(instances.size(), 1U);
    }
}

}  // namespace
}  // namespace dorvo
