#include "run/runreporter.h"

#include "run/jsonrunreporter.h"
#include "run/textrunreporter.h"

namespace dorvo::agent {

std::unique_ptr<RunReporter> makeRunReporter(Terminal& terminal, const JobDefinition& job,
                                             bool json) {
    if (json) {
        return std::make_unique<JsonRunReporter>(terminal, job);
    }
    return std::make_unique<TextRunReporter>(terminal, job);
}

}  // namespace dorvo::agent
