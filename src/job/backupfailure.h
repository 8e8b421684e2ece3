// What a failure does to a backup run: decisions as values, without side effects.
//
// Codes are the platform's, or HTTP statuses with their mark. A run that waits for its network
// pauses itself and tries again; everything else about an item is written down and left behind.
#pragma once

#include <cstdint>

#include "job/joberror.h"

namespace dorvo {

constexpr uint32_t errorCancelled = 1223;
constexpr uint32_t errorRefused = 10061;
constexpr uint32_t errorUnauthorized = withHttpMark(401);
constexpr uint32_t errorNotAcceptable = withHttpMark(406);

struct Failure {
    uint32_t code = 0;
    bool networkError = false;   // what the job's is_network_error says of the code
    bool stopping = false;       // a stop or a pause is pending
    bool waitForServer = false;  // the option: a refused connection may become a server yet
};

enum class FailureAction {
    leave,   // the job was asked to stop: neither recorded nor retried
    pause,   // park the run and resume it later
    record,  // write the item down as failed and go on
    fail,    // the run ends in error
};

constexpr bool isHttpStatus(uint32_t code) {
    return (code & httpMark) == httpMark;
}

constexpr bool isTransient(const Failure& failure) {
    return failure.networkError || failure.code == errorUnauthorized ||
           failure.code == errorNotAcceptable ||
           (failure.code == errorRefused && failure.waitForServer);
}

// Whatever fails while the job is being stopped fails because of that.
constexpr bool isCancelled(const Failure& failure) {
    return failure.stopping || failure.code == errorCancelled;
}

// An item could not be stored.
constexpr FailureAction itemFailure(const Failure& failure) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isTransient(failure) ? FailureAction::pause : FailureAction::record;
}

// The run's list could not be made, or the storage could not be started or ended.
constexpr FailureAction runFailure(const Failure& failure) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isTransient(failure) ? FailureAction::pause : FailureAction::fail;
}

}  // namespace dorvo
