// Which engine a command uses.
#pragma once

#include <memory>

#include "engine/engine.h"

namespace dorvo::agent {

// The resident agent of this machine when one runs; else this process, which then owns the data
// directory for as long as the engine lives. Throws AgentError when another command has it.
std::unique_ptr<Engine> openEngine();

}  // namespace dorvo::agent
