// Whether the service that Windows calls running does run jobs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "engine/dataowner.h"

namespace dorvo::agent {

// What can be seen of a resident agent from outside.
struct ResidentSigns {
    std::optional<uint32_t> answers;  // the process that answers at the control port
    std::optional<Holder> holder;     // who has the data directory
    bool announced = false;           // there is a control file
};

// Waits for the answer of the control port. Throws AgentError where this user may not ask.
ResidentSigns residentSigns();

// What keeps the service's process from running jobs, as the end of a sentence that begins with
// "The service is running (process 4711)"; empty when nothing does. Pure.
std::string residentTrouble(uint32_t service, const ResidentSigns& signs);

}  // namespace dorvo::agent
