// The commands that run the resident agent: in this console, and as a service.
#include "cli/commands.h"

#include "control/remoteengine.h"
#include "resident/resident.h"
#include "resident/residenthealth.h"
#include "resident/service.h"
#include "resident/serviceprocess.h"
#include "text/agenterror.h"
#include "text/interrupt.h"

namespace dorvo::agent {
namespace {

// agent run: the resident agent in this console, until Ctrl+C.
class ResidentCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;
};

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

// Whether the agent that Windows calls running does run jobs, which only they may ask who may
// command it.
std::string troubleOf(const Service::Status& status) {
    try {
        return residentTrouble(status.process, residentSigns());
    } catch (const AgentError&) {
        return {};
    }
}

int showStatus(Terminal& terminal) {
    const Service::Status status = Service::status();
    const std::string trouble = status.running ? troubleOf(status) : std::string();
    terminal.out("The service is " + status.text +
                 (status.process == 0 ? std::string()
                                      : " (process " + std::to_string(status.process) + ")") +
                 trouble + ".");
    return status.running && trouble.empty() ? exitDone : exitFailed;
}

// agent service install|uninstall|start|stop|status: the resident agent as a Windows service.
class ServiceCommand : public Command {
public:
    CLI::App* describe(CLI::App& parent) override;
    int run(Terminal& terminal) override;

private:
    // Owned by the parser.
    CLI::App* install_ = nullptr;
    CLI::App* uninstall_ = nullptr;
    CLI::App* start_ = nullptr;
    CLI::App* stop_ = nullptr;
    CLI::App* run_ = nullptr;
};

CLI::App* ServiceCommand::describe(CLI::App& parent) {
    CLI::App* const service = parent.add_subcommand(
        "service", "Have Windows run the resident agent, whoever has logged on");
    service->require_subcommand(1);
    install_ = service->add_subcommand(
        "install", "Install it: it starts with Windows, and again should it fail");
    uninstall_ = service->add_subcommand("uninstall", "Stop and remove it; jobs and settings stay");
    start_ = service->add_subcommand("start", "Start it and wait until it runs");
    stop_ = service->add_subcommand(
        "stop", "Stop it and wait for its end; runs go on when it is started again");
    CLI::App* const status = service->add_subcommand(
        "status", "Say whether it runs and answers; ends with 1 when it does not");
    run_ = service->add_subcommand("run")->group("");  // for the service manager
    install_->footer("Example:\n  agent service install\n  agent service start");
    uninstall_->footer("Example:\n  agent service uninstall");
    start_->footer("Example:\n  agent service start");
    stop_->footer("Example:\n  agent service stop");
    status->footer("Example:\n  agent service status");
    service->footer("All but status takes an administrator.\nExample:\n  agent service install");
    return service;
}

int ServiceCommand::run(Terminal& terminal) {
    if (install_->parsed()) {
        Service::install(L"service run");
        terminal.out("The service is installed: 'agent service start' starts it now.");
    } else if (uninstall_->parsed()) {
        Service::uninstall();
        terminal.out("The service is removed.");
    } else if (start_->parsed()) {
        Service::start();
        return showStatus(terminal);
    } else if (stop_->parsed()) {
        Service::stop();
        terminal.out("The service is stopped.");
    } else if (run_->parsed()) {
        ServiceProcess().run();
    } else {
        return showStatus(terminal);
    }
    return exitDone;
}

}  // namespace

std::unique_ptr<Command> residentCommand() {
    return std::make_unique<ResidentCommand>();
}

std::unique_ptr<Command> serviceCommand() {
    return std::make_unique<ServiceCommand>();
}

}  // namespace dorvo::agent
