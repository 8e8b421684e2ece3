#include "packages/given_up.h"

#include <exception>
#include <string>

#include "support/event_log.h"

namespace dorvo {

void freeGivenUp(Catalog& catalog, BlockStore& blocks) {
    const auto complain = [](const std::exception& error) {
        logEvent(std::string("cannot free what a backup gave up: ") + error.what());
    };
    try {
        for (const int64_t container : catalog.listGivenUp()) {
            try {
                blocks.remove(container);
                catalog.forgetGivenUp(container);
            } catch (const std::exception& error) {
                complain(error);
            }
        }
    } catch (const std::exception& error) {
        complain(error);
    }
}

}  // namespace dorvo
