#include "cli/instancequery.h"

#include "base/machine_name.h"
#include "data/instancechoice.h"

namespace dorvo::agent {

void InstanceQuery::describe(CLI::App& command) {
    command
        .add_option("INSTANCE", instance,
                    "The run's id or the beginning of it, or 'latest' for the last completed one")
        ->required();
    command.add_option("--job", job, "Only runs of this backup job: its name or id");
    command.add_option("--machine", machine, "Only runs of this machine");
    command.add_option("--local", local, "The folder of the backups, in place of the server")
        ->type_name("DIR");
    command.add_option("--user", user, "The account, when several have logged in");
}

StoredInstance InstanceQuery::choose(const BackupPlace& place) const {
    std::string here;
    machineName(here);  // without it no machine's runs come first
    return chooseInstance(place.runs(machine, backupJobId(loadJobs(), job)), instance, here,
                          place.listing());
}

}  // namespace dorvo::agent
