#include "engine/inprocessengine.h"

namespace dorvo::agent {

void InProcessEngine::submit(const JobDefinition& job) {
    host_.open(job.id());
    ModuleEngine::submit(job);
}

void InProcessEngine::tell(JobVerb verb, const std::string& id) {
    host_.open(id);
    ModuleEngine::tell(verb, id);
}

}  // namespace dorvo::agent
