// Why a job in a state does not do what it is told.
#pragma once

#include <cstdint>
#include <string>

#include "engine/engine.h"

namespace dorvo::agent {

// What is against the verb, as the end of a sentence that begins with the job's name; empty when
// nothing is.
std::string refusalOf(JobVerb verb, int32_t state);

// The same of a new definition.
std::string refusalOfDefinition(int32_t state);

}  // namespace dorvo::agent
