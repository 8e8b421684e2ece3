// What a run is called and what it does, in the words of the lines that tell of it. Pure.
#pragma once

#include <string>

#include "jobdef/jobdefinition.h"

namespace dorvo::agent {

struct RunWords {
    std::string verb;     // "Backup"
    std::string looking;  // "is looking for what has changed": how it begins
    std::string ahead;    // "to send": of the files that lie ahead
    std::string done;     // "sent"
    std::string place;    // "the server": what it waits for when it pauses by itself
    bool viaNetwork = true;
    bool restores = false;
};

RunWords wordsOf(const JobDefinition& job);

}  // namespace dorvo::agent
