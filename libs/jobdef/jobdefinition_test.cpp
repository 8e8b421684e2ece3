#include "jobdef/jobdefinition.h"

#include <gtest/gtest.h>
#include <windows.h>

#include <filesystem>
#include <fstream>

#include "jobdef/backupjobdefinition.h"
#include "jobdef/jobdefinitionfactory.h"
#include "jobdef/restorejobdefinition.h"
#include "json_spirit/json_spirit.h"
#include "support/fails_with.h"

namespace dorvo {
namespace {

namespace fs = std::filesystem;

// The example of docs/formats/job-definition.md.
const std::string backupText = R"({
    "compress" : false,
    "extensions" : [
        "*.doc",
        "txt"
    ],
    "filterType" : 1,
    "id" : "3c9a",
    "location" : "",
    "name" : "Büro",
    "runMissed" : true,
    "schedule" : {
        "day" : 5,
        "hour" : 22,
        "kind" : 3,
        "minute" : 30,
        "second" : 0,
        "start" : "129437500800000000"
    },
    "source" : [
        "C:/Users/Zoë/Documents",
        "D:/"
    ],
    "storage" : "web",
    "type" : 1,
    "user" : "alice"
})";

const std::string restoreText = R"({
    "conflict" : 3,
    "id" : "77",
    "jobdefinitionid" : "3c9a",
    "jobinstanceid" : "e1",
    "location" : "//nas/backup",
    "machine" : "DESK",
    "name" : "back",
    "prefix" : "C:/data",
    "source" : [
    ],
    "storage" : "local",
    "target" : "D:/restored/",
    "type" : 2,
    "user" : "bob"
})";

json_spirit::Object parsed(const std::string& text) {
    json_spirit::Value value;
    json_spirit::read_or_throw(text, value);
    return value.get_obj();
}

std::unique_ptr<JobDefinition> made(const json_spirit::Object& members) {
    return JobDefinitionFactory::createFromText(json_spirit::write(json_spirit::Value(members)));
}

TEST(Definition, OfTheDocumentIsReadAndWritten) {
    const auto backup = JobDefinitionFactory::createFromText(backupText);
    const auto* saved = dynamic_cast<const BackupJobDefinition*>(backup.get());
    ASSERT_NE(saved, nullptr);
    EXPECT_EQ(saved->name(), L"B\u00fcro");
    EXPECT_EQ(saved->source(),
              (std::vector<std::wstring>{L"C:\\Users\\Zo\u00eb\\Documents", L"D:\\"}));
    EXPECT_EQ(saved->schedule(),
              (JobSchedule{ScheduleKind::weekly, 129437500800000000, 5, 22, 30, 0}));
    const auto restore = JobDefinitionFactory::createFromText(restoreText);
    const auto* typed = dynamic_cast<const RestoreJobDefinition*>(restore.get());
    ASSERT_NE(typed, nullptr);
    EXPECT_EQ(typed->location(), L"\\\\nas\\backup");
    EXPECT_EQ(typed->target(), L"D:\\restored\\");
    EXPECT_EQ(typed->conflict(), RestoreJobDefinition::conflictRename);
    EXPECT_EQ(backup->clone()->text(), backupText);
    EXPECT_EQ(restore->text(), restoreText);
}

TEST(Definition, RefusesWhatMakesNoSense) {
    const auto expectNone = [](const json_spirit::Object& members, DWORD error, const char* why) {
        EXPECT_FAILS(error, made(members) != nullptr) << why;
    };
    const std::pair<std::string, std::vector<const char*>> required[] = {
        {backupText, {"id", "name", "user", "type", "storage", "source"}},
        {restoreText,
         {"id", "name", "user", "type", "storage", "location", "source", "target", "machine",
          "jobdefinitionid", "jobinstanceid"}}};
    for (const auto& [text, keys] : required) {
        for (const char* key : keys) {
            json_spirit::Object members = parsed(text);
            members.erase(key);
            expectNone(members, ERROR_INVALID_DATA, key);
            members[key] = true;
            expectNone(members, ERROR_INVALID_DATA, key);
        }
    }
    const std::tuple<const char*, json_spirit::Value, DWORD> others[] = {
        {"id", "", ERROR_INVALID_DATA},
        {"storage", "tape", ERROR_NOT_SUPPORTED},  // a later version may know it
        {"type", int64_t{1} << 32 | 1, ERROR_INVALID_DATA},
        {"source", json_spirit::Array{"C:/a", 1}, ERROR_INVALID_DATA},
    };
    for (const auto& [key, value, error] : others) {
        json_spirit::Object members = parsed(backupText);
        members[key] = value;
        expectNone(members, error, key);
    }
    for (const char* text : {"", "[]", "null", "{\"id\":"}) {
        EXPECT_EQ(JobDefinitionFactory::createFromText(text), nullptr) << text;
    }
}

TEST(Definition, TakesDefaultsForTheOthers) {
    json_spirit::Object without = parsed(backupText);
    json_spirit::Object wrong = without;
    for (const char* key : {"filterType", "extensions", "compress", "schedule", "runMissed"}) {
        without.erase(key);
        wrong[key] = "x";
    }
    for (const json_spirit::Object& members : {without, wrong}) {
        const auto definition = made(members);
        const auto& backup = dynamic_cast<const BackupJobDefinition&>(*definition);
        EXPECT_EQ(backup.filterType(), 0);
        EXPECT_TRUE(backup.extensions().empty());
        EXPECT_TRUE(backup.compress());
        EXPECT_TRUE(backup.runMissed());
        EXPECT_EQ(backup.schedule(), JobSchedule());
    }
}

// A job of a later version must not be taken for rubbish and deleted.
TEST(Definition, KeepsWhatItDoesNotKnow) {
    json_spirit::Object members = parsed(backupText);
    members["priority"] = json_spirit::Array{1, "x"};
    members["schedule"].get_obj()["zone"] = "UTC";
    EXPECT_EQ(parsed(made(members)->text()), members);

    members["type"] = 9;
    const auto later = made(members);
    ASSERT_NE(later, nullptr);
    EXPECT_EQ(later->type(), 9);
    EXPECT_EQ(parsed(later->text()), members);
}

TEST(JobSchedule, BoundsItsFieldsByItsKind) {
    using enum ScheduleKind;
    const auto expect = [](const JobSchedule& schedule, bool valid, const std::string& start) {
        const auto kind = static_cast<int32_t>(schedule.kind);
        json_spirit::Object members = parsed(backupText);
        members["schedule"] = json_spirit::Object{{"kind", kind},
                                                  {"start", start},
                                                  {"day", schedule.day},
                                                  {"hour", schedule.hour},
                                                  {"minute", schedule.minute},
                                                  {"second", schedule.second}};
        const auto read = made(members);
        SCOPED_TRACE(testing::Message() << kind << " day " << schedule.day << " start " << start);
        auto& backup = dynamic_cast<BackupJobDefinition&>(*read);
        EXPECT_EQ(backup.schedule(), valid ? schedule : JobSchedule());
        EXPECT_EQ(backup.scheduleIsValid(), valid);
        EXPECT_EQ(parsed(backup.clone()->text()), members) << "what it says survives a save";
        EXPECT_TRUE(backup.setSchedule(JobSchedule()) && backup.scheduleIsValid());
        EXPECT_EQ(parsed(backup.text()).at("schedule").get_obj().at("kind").get_int(), 5);
    };
    const std::pair<JobSchedule, bool> rows[] = {
        {{manual, 0, 0, 0, 0, 0}, true},           {{daily, 0, 99, 23, 59, 59}, true},
        {{weekly, 0, 0, 0, 0, 0}, true},           {{weekly, 0, 6, 0, 0, 0}, true},
        {{monthly, 0, 31, 0, 0, 0}, true},         {{once, 1, 0, 0, 0, 0}, true},
        {{daily, 0, 0, 24, 0, 0}, false},          {{daily, 0, 0, 0, 60, 0}, false},
        {{daily, 0, 0, 0, 0, 60}, false},          {{daily, 0, 0, -1, 0, 0}, false},
        {{weekly, 0, 7, 0, 0, 0}, false},          {{monthly, 0, 0, 0, 0, 0}, false},
        {{monthly, 0, 32, 0, 0, 0}, false},        {{once, 0, 0, 0, 0, 0}, false},
        {{ScheduleKind{0}, 0, 0, 0, 0, 0}, false}, {{ScheduleKind{6}, 0, 0, 0, 0, 0}, false},
    };
    for (const auto& [schedule, valid] : rows) {
        expect(schedule, valid, std::to_string(schedule.start));
    }
    for (const char* start : {"12x", "-1", " 1", "18446744073709551616"}) {
        expect({daily, 0, 0, 0, 0, 0}, false, start);
    }
}

TEST(DefinitionPath, DevicePathsKeepTheirBackslashes) {
    BackupJobDefinition backup("1", L"n", "u");
    const std::vector<std::wstring> paths = {L"\\\\?\\C:\\a", L"\\\\.\\pipe\\x", L"\\\\nas\\share",
                                             L"C:\\"};
    backup.setSource(paths);
    const json_spirit::Object members = parsed(backup.text());
    EXPECT_EQ(members.at("source"), json_spirit::Value(json_spirit::Array{
                                        "\\\\?\\C:\\a", "\\\\.\\pipe\\x", "//nas/share", "C:/"}));
    const auto read = made(members);
    EXPECT_EQ(dynamic_cast<const BackupJobDefinition&>(*read).source(), paths);
}

TEST(DefinitionFile, OldOneOutlivesAFailedSave) {
    const fs::path folder = fs::temp_directory_path() / "jobdef_test";
    fs::remove_all(folder);
    const std::wstring path = (folder / "job" / "3c9a" / "def").wstring();
    EXPECT_FAILS(ERROR_PATH_NOT_FOUND, JobDefinitionFactory::create(path) != nullptr);
    BackupJobDefinition backup("3c9a", L"first", "alice");
    ASSERT_TRUE(backup.save(path));
    const std::string before = backup.text();
    fs::create_directory(path + L".new");
    backup.setName(L"second");
    EXPECT_FALSE(backup.save(path));
    EXPECT_NE(GetLastError(), 0U);
    const auto read = JobDefinitionFactory::create(path);
    ASSERT_NE(read, nullptr);
    EXPECT_EQ(read->text(), before);
    std::ofstream(fs::path(path)) << before.substr(0, before.size() - 1);
    EXPECT_FAILS(ERROR_INVALID_DATA, JobDefinitionFactory::create(path) != nullptr);
    fs::remove_all(folder);
}

}  // namespace
}  // namespace dorvo
