#include "cli/snapshotscommand.h"

#include "control/openengine.h"
#include "text/exitcode.h"

namespace dorvo::agent {

CLI::App* SnapshotsCommand::describe(CLI::App& parent) {
    CLI::App* const snapshots =
        parent.add_subcommand("snapshots", "Switch volume snapshots for backups on or off");
    snapshots->add_option("on|off", choice_, "From the next run on")
        ->required()
        ->check(CLI::IsMember({"on", "off"}));
    snapshots->footer(
        "With snapshots a backup sees each volume as it was when the run began, open files "
        "included; making them takes an administrator.\nExample:\n  agent snapshots on");
    return snapshots;
}

int SnapshotsCommand::run(Terminal& terminal) {
    openEngine()->setSnapshots(choice_ == "on");
    terminal.out("Volume snapshots are " + choice_ + ".");
    return exitDone;
}

}  // namespace dorvo::agent
