#include "instancescommand.h"

#include <windows.h>

#include "agenterror.h"
#include "base/text.h"
#include "failuretext.h"
#include "jobstore.h"
#include "singletons.h"
#include "storage/webaccount.h"
#include "table.h"
#include "units.h"
#include "users.h"

namespace dorvo::agent {
namespace {

std::string jobName(const JobList& jobs, const std::string& id) {
    for (const auto& job : jobs) {
        if (equalsIgnoreCase(job->id(), id)) {
            return toUtf8(job->name());
        }
    }
    return id;
}

json_spirit::Ordered_object json(const WebInstance& instance) {
    return {{"machine", instance.machine},
            {"jobdefinitionid", instance.jobDefinitionId},
            {"jobinstanceid", instance.jobInstanceId},
            {"starttime", instance.startTime},
            {"endtime", instance.endTime},
            {"state", instance.state},
            {"totalfiles", instance.totalFiles},
            {"totaldirectories", instance.totalDirectories},
            {"totalsize", instance.totalSize},
            {"errors", instance.errors}};
}

}  // namespace

CLI::App* InstancesCommand::describe(CLI::App& parent) {
    CLI::App* const instances =
        parent.add_subcommand("instances", "List the runs that the storage server holds");
    instances->add_option("--job", job_, "Only runs of this job: its name or id");
    instances->add_option("--machine", machine_, "Only runs of this machine");
    instances->add_option("--user", user_, "The account, when several have logged in");
    instances->add_flag("--json", json_, "One JSON document");
    instances->footer("Times are UTC.\nExample:\n  agent instances --job docs");
    return instances;
}

int InstancesCommand::run(Terminal& terminal) {
    requireServer();
    const std::string user = chooseUser(user_);
    const JobList jobs = loadJobs();
    const std::string id = job_.empty() ? std::string() : findJob(jobs, job_).id();
    std::string cookie;
    cookies().findCookie(user.c_str(), cookie);
    std::vector<WebInstance> instances;
    if (!WebAccount::listInstances(cookie, machine_, id, instances)) {
        throw AgentError(requestFailure(GetLastError(), user));
    }
    json_spirit::Ordered_array documents;
    std::vector<std::vector<std::string>> rows;
    for (const WebInstance& instance : instances) {
        documents.emplace_back(json(instance));
        rows.push_back({instance.startTime, instance.state, instance.machine,
                        jobName(jobs, instance.jobDefinitionId),
                        std::to_string(instance.totalFiles), bytesText(instance.totalSize),
                        std::to_string(instance.errors), instance.jobInstanceId});
    }
    if (json_) {
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (rows.empty()) {
        terminal.out("The server holds no runs of '" + user + "' that match.");
    } else {
        terminal.out(tableText(
            {"STARTED", "STATE", "MACHINE", "JOB", "FILES", "SIZE", "FAILED", "INSTANCE"}, rows));
    }
    return exitDone;
}

}  // namespace dorvo::agent
