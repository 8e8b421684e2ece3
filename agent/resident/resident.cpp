#include "resident/resident.h"

#include <memory>

#include "base/log.h"
#include "base/logfile.h"
#include "control/controlfile.h"
#include "control/controlserver.h"
#include "control/eventlog.h"
#include "engine/moduleengine.h"
#include "engine/modulehost.h"
#include "resident/loginkeeper.h"
#include "resident/systemwatch.h"
#include "scheduler/update_scheduler.h"
#include "text/agentlog.h"

namespace dorvo::agent {
namespace {

void logWaiting(const std::optional<Holder>& holder) {
    noteInLog(LogLevel::warning,
              "The resident agent waits and runs nothing: " +
                  (holder ? holderText(*holder) : std::string("another process")) +
                  " has the data directory.");
}

// Nothing when the stop came first.
std::unique_ptr<ModuleHost> makeHost(HANDLE stop, const Resident::Listener& listener) {
    try {
        const auto waits = [&](const std::optional<Holder>& holder) {
            listener.waiting(holder);
            logWaiting(holder);
        };
        return std::make_unique<ModuleHost>(
            DataOwner::Role::resident,
            DataOwner::Patience{.giveUp = stop, .ms = INFINITE, .waits = waits});
    } catch (const DataOwned&) {
        return nullptr;
    }
}

}  // namespace

void Resident::run(const Listener& listener) {
    // What stands further down goes first at the end.
    const SystemWatch watch(stop_);
    const std::unique_ptr<ModuleHost> host = makeHost(stop_, listener);
    if (!host) {
        return;
    }
    // Jobs that make up for a missed start begin as soon as the module is open.
    EventLog events;
    host->open();
    Update_Scheduler updates;
    updates.schedule();
    ModuleEngine engine;
    ControlServer server(engine, events);
    const ControlFile file(server.address());
    const LoginKeeper logins(engine);
    logLine(LogLevel::information, "The resident agent is ready.");
    listener.ready();
    WaitForSingleObject(stop_, INFINITE);
    logLine(LogLevel::information, "The resident agent ends.");
    engine.accounts().stop();
}

}  // namespace dorvo::agent
