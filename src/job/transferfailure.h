// What a failure does to a run: decisions as values, without side effects.
//
// Codes are the platform's, or HTTP statuses with their mark. A run that waits for its network
// pauses itself and tries again; everything else about an item is written down and left behind.
#pragma once

#include <cstdint>

#include "base/disk_room.h"
#include "base/http_error.h"
#include "storage/local/localerror.h"

namespace dorvo {

constexpr uint32_t errorCancelled = 1223;
constexpr uint32_t errorRefused = 10061;
constexpr uint32_t errorHostNotFound = 11001;  // also a machine without a network looking up a name
constexpr uint32_t errorNameTryAgain = 11002;
constexpr uint32_t errorUnauthorized = withHttpMark(401);
constexpr uint32_t errorNotAcceptable = withHttpMark(406);

struct Failure {
    uint32_t code = 0;
    bool networkError = false;   // what the job's is_network_error says of the code
    bool stopping = false;       // a stop or a pause is pending
    bool waitForServer = false;  // the option: a server that is not to be found may appear yet
};

enum class FailureAction {
    leave,   // the job was asked to stop: neither recorded nor retried
    pause,   // park the run and resume it later
    record,  // write the item down as failed and go on
    fail,    // the run ends in error
    settle,  // the run is completed all the same
};

// There is nobody at the server's address, or no address to its name.
constexpr bool isServerMissing(uint32_t code) {
    return code == errorRefused || code == errorHostNotFound || code == errorNameTryAgain;
}

constexpr bool isTransient(const Failure& failure) {
    return failure.networkError || failure.code == errorUnauthorized ||
           failure.code == errorNotAcceptable ||
           (failure.waitForServer && isServerMissing(failure.code));
}

// The storage has understood, and says no: another try would be answered alike.
constexpr bool isRefusal(uint32_t code) {
    return code == withHttpMark(400) || code == withHttpMark(403) || code == withHttpMark(404) ||
           code == withHttpMark(409) || code == errorInstanceState;
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

// The run's list could not be made, or the storage could not be started. There is room again on a
// full disk some day.
constexpr FailureAction runFailure(const Failure& failure) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isTransient(failure) || isDiskFull(failure.code) ? FailureAction::pause
                                                            : FailureAction::fail;
}

// How often the end of a run is tried, an hour with the usual time between the tries, before an
// answer that might change is believed.
constexpr unsigned endTries = 15;

// What a failure at the end makes of the number of those before it. A broken off try says nothing.
constexpr unsigned failuresInARow(const Failure& failure, unsigned before) {
    return isCancelled(failure) ? before : before + 1;
}

// The same, for conflicts: another failure in between has confirmed none of them.
constexpr unsigned conflictsInARow(const Failure& failure, unsigned before) {
    if (isCancelled(failure)) {
        return before;
    }
    return failure.code == withHttpMark(409) ? before + 1 : 0;
}

// The storage could not complete the run, for the time that `tries` says. All that was stored is
// dropped with a run that fails here, so it takes a clear no. A conflict says that the run is not
// whole, or not in the state for it: who no longer knows the run refuses its next start.
constexpr FailureAction endFailure(const Failure& failure, unsigned tries = endTries) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    const bool believed =
        isRefusal(failure.code) && (failure.code != withHttpMark(409) || tries >= endTries);
    return believed ? FailureAction::fail : FailureAction::pause;
}

// The service has not heard of the end of a restore, all of whose items are in their places: that
// is worth some tries, and no more.
constexpr FailureAction restoreEndFailure(const Failure& failure, unsigned tries) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isRefusal(failure.code) || tries >= endTries ? FailureAction::settle
                                                        : FailureAction::pause;
}

}  // namespace dorvo
