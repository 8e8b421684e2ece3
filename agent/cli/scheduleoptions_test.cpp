#include "cli/scheduleoptions.h"

#include <gtest/gtest.h>

#include <iterator>
#include <sstream>

#include "data/schedules.h"
#include "text/agenterror.h"

namespace dorvo::agent {
namespace {

// What the options say; "usage" for those that are refused.
std::string said(std::vector<std::string> arguments, const JobSchedule& known = {},
                 uint64_t* start = nullptr) {
    CLI::App app;
    std::vector<std::string> paths;
    app.add_option("PATH", paths);
    ScheduleOptions options;
    options.describe(app);
    try {
        app.parse(std::vector<std::string>(arguments.rbegin(), arguments.rend()));
        const JobSchedule schedule = options.read(known, 77);
        EXPECT_TRUE(schedule.isValid());
        if (start != nullptr) {
            *start = schedule.start;
        }
        return scheduleText(schedule) + (paths.empty() ? "" : " of " + paths.front());
    } catch (const CLI::ParseError&) {
        return "usage";
    } catch (const AgentError& error) {
        EXPECT_EQ(error.code(), exitUsage);
        return "usage";
    }
}

TEST(ScheduleOptions, AreTimesAndDaysOrWrongUsage) {
    EXPECT_EQ(said({"--daily", "2:05", "C:\\a"}), "every day at 02:05 of C:\\a");
    EXPECT_EQ(said({"--weekly", "SUN", "23:59", "C:\\a"}), "every Sunday at 23:59 of C:\\a");
    EXPECT_EQ(said({"--weekly", "saturday", "00:00"}), "every Saturday at 00:00");
    EXPECT_EQ(said({"C:\\a", "--monthly", "31", "12:00"}),
              "every month on day 31 at 12:00 of C:\\a");
    EXPECT_EQ(said({"--no-schedule"}), "by hand");
    for (const char* wrong :
         {"--daily 24:00", "--daily 12:60", "--daily 12", "--daily 12:", "--daily 9:5",
          "--daily -1:00", "--daily 012:00", "--weekly 12:00 mon", "--weekly someday 12:00",
          "--weekly mon", "--monthly 0 12:00", "--monthly 32 12:00", "--daily 12:00 --no-schedule",
          "--daily 12:00 --weekly mon 12:00"}) {
        std::istringstream words(wrong);
        EXPECT_EQ(said({std::istream_iterator<std::string>(words), {}}), "usage") << wrong;
    }
}

TEST(ScheduleOptions, TheSameScheduleKeepsItsStart) {
    const JobSchedule known{.kind = ScheduleKind::daily, .start = 5, .hour = 2};
    uint64_t start = 0;
    said({"--daily", "02:00"}, known, &start);
    EXPECT_EQ(start, 5U);
    said({"--daily", "02:01"}, known, &start);
    EXPECT_EQ(start, 77U);
    said({"--no-schedule"}, known, &start);
    EXPECT_EQ(start, 0U);
}

}  // namespace
}  // namespace dorvo::agent
