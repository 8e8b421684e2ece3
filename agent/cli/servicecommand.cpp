#include "cli/servicecommand.h"

#include "resident/residenthealth.h"
#include "resident/service.h"
#include "resident/serviceprocess.h"
#include "text/agenterror.h"
#include "text/exitcode.h"

namespace dorvo::agent {
namespace {

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

}  // namespace

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

}  // namespace dorvo::agent
