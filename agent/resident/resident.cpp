#include "resident/resident.h"

#include <memory>

#include "agenterror.h"
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

namespace dorvo::agent {
namespace {

// Nothing when the stop came first.
std::unique_ptr<ModuleHost> makeHost(HANDLE stop, const std::function<void()>& waiting) {
    try {
        return std::make_unique<ModuleHost>();
    } catch (const DataOwned&) {
        waiting();
    }
    try {
        return std::make_unique<ModuleHost>(stop, INFINITE);
    } catch (const DataOwned&) {
        if (WaitForSingleObject(stop, 0) == WAIT_OBJECT_0) {
            return nullptr;
        }
        throw;
    }
}

}  // namespace

void Resident::run(const Listener& listener) {
    // What stands further down goes first at the end.
    const SystemWatch watch(stop_);
    const std::unique_ptr<ModuleHost> host = makeHost(stop_, listener.waiting);
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
