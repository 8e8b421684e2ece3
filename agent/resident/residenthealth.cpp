#include "resident/residenthealth.h"

#include "control/controlfile.h"
#include "control/remoteengine.h"

namespace dorvo::agent {

ResidentSigns residentSigns() {
    const auto answers = RemoteEngine::residentProcess();
    return {.answers = answers,
            .holder = DataOwner::holder(),
            .announced = answers || ControlFile::read()};
}

std::string residentTrouble(uint32_t service, const ResidentSigns& signs) {
    if (signs.answers == service) {
        return {};
    }
    if (signs.holder && signs.holder->process != service) {
        return ", but runs no jobs: it waits until " + holderText(*signs.holder) +
               " lets go of the data directory. " +
               (signs.holder->resident ? "Stop that resident agent (Ctrl+C in its window)"
                                       : "Wait for that command's end, or end it");
    }
    if (signs.holder && !signs.announced) {
        return ", but not ready yet: it loads its jobs";
    }
    if (signs.holder) {
        return ", but does not answer: run 'agent service stop' and 'agent service start', and end "
               "the process if it does not stop";
    }
    return ", but runs no jobs: it has not got the data directory yet; its log says what it waits "
           "for";
}

}  // namespace dorvo::agent
