// How the user gets a resident agent.
#pragma once

namespace dorvo::agent {

constexpr const char* residentHint = "start one with 'agent service install' or 'agent run'";

}  // namespace dorvo::agent
