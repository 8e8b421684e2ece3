#include "run/runflags.h"

#include "text/agenterror.h"
#include "text/residenthint.h"

namespace dorvo::agent {

void RunFlags::describe(CLI::App& command) {
    command.add_flag("--no-wait", noWait, "Leave the run to the resident agent");
    command.add_flag("--json", json, "One JSON object a line");
}

void RunFlags::check(const Engine& engine) const {
    if (noWait && !engine.resident()) {
        throw AgentError(
            std::string("--no-wait leaves the run to the resident agent, and none runs: ") +
            residentHint);
    }
}

}  // namespace dorvo::agent
