#include "cli/instancescommand.h"

#include "base/text.h"
#include "data/backupplace.h"
#include "data/instancechoice.h"
#include "data/jobstore.h"
#include "text/exitcode.h"
#include "text/table.h"
#include "text/units.h"

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

json_spirit::Ordered_object json(const StoredInstance& instance) {
    json_spirit::Ordered_object members = {{"machine", instance.machine},
                                           {"jobdefinitionid", instance.jobDefinitionId},
                                           {"jobinstanceid", instance.jobInstanceId},
                                           {"starttime", instance.startTime},
                                           {"endtime", instance.endTime},
                                           {"state", instance.state},
                                           {"totalfiles", instance.totalFiles},
                                           {"totaldirectories", instance.totalDirectories},
                                           {"totalsize", instance.totalSize},
                                           {"errors", instance.errors}};
    if (!instance.user.empty()) {
        members.push_back({"user", instance.user});
    }
    return members;
}

}  // namespace

CLI::App* InstancesCommand::describe(CLI::App& parent) {
    CLI::App* const instances = parent.add_subcommand(
        "instances", "List the runs of backup jobs that the server or a folder holds");
    instances->add_option("--job", job_, "Only runs of this job: its name or id");
    instances->add_option("--machine", machine_, "Only runs of this machine");
    instances->add_option("--local", local_, "The folder of the backups, in place of the server")
        ->type_name("DIR");
    instances->add_option("--user", user_, "The account, when several have logged in");
    instances->add_flag("--json", json_, "One JSON document");
    instances->footer("Times are UTC.\nExample:\n  agent instances --job docs");
    return instances;
}

int InstancesCommand::run(Terminal& terminal) {
    const BackupPlace place(local_, user_);
    const JobList jobs = loadJobs();
    const std::vector<StoredInstance> instances = place.runs(machine_, backupJobId(jobs, job_));
    json_spirit::Ordered_array documents;
    std::vector<std::vector<std::string>> rows;
    for (const StoredInstance& instance : instances) {
        documents.emplace_back(json(instance));
        rows.push_back({instance.startTime, instance.state, instance.machine,
                        jobName(jobs, instance.jobDefinitionId),
                        std::to_string(instance.totalFiles), bytesText(instance.totalSize),
                        std::to_string(instance.errors), instance.jobInstanceId});
    }
    if (json_) {
        terminal.out(json_spirit::write_formatted(json_spirit::Ordered_value(documents)));
    } else if (rows.empty()) {
        terminal.out("There are no runs that match.");
    } else {
        terminal.out(tableText(
            {"STARTED", "STATE", "MACHINE", "JOB", "FILES", "SIZE", "FAILED", "INSTANCE"}, rows));
    }
    return exitDone;
}

}  // namespace dorvo::agent
