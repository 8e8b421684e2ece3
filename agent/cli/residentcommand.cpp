#include "cli/residentcommand.h"

#include "control/remoteengine.h"
#include "resident/resident.h"
#include "text/agenterror.h"
#include "text/interrupt.h"

namespace dorvo::agent {

CLI::App* ResidentCommand::describe(CLI::App& parent) {
    CLI::App* const run = parent.add_subcommand("run", "Run the resident agent in this console");
    run->footer(
        "It runs the jobs by their schedules and carries out what other commands ask, until "
        "Ctrl+C. Runs then pause, and go on by themselves when it is started again. 'agent service "
        "install' has Windows run it.\nExample:\n  agent run");
    return run;
}

int ResidentCommand::run(Terminal& terminal) {
    if (RemoteEngine::connect()) {
        throw AgentError("The resident agent is running already");
    }
    const Interrupt interrupt(Interrupt::Reset::manual);
    Resident(interrupt.event())
        .run({.waiting =
                  [&](const std::optional<Holder>& holder) {
                      if (holder && holder->resident) {
                          throw AgentError("The resident agent is running already: " +
                                           holderText(*holder));
                      }
                      terminal.out("Another command of the agent" +
                                   (holder ? ", " + holderText(*holder) + "," : std::string()) +
                                   " is running jobs: waiting for its end.");
                  },
              .ready = [&] { terminal.out("The resident agent is ready."); }});
    return exitDone;
}

}  // namespace dorvo::agent
