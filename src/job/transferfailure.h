// What a failure does to a run, and how long one that waits does so: decisions as values, without
// side effects.
//
// Codes are the platform's, or HTTP statuses with their mark. A run that waits for its network
// pauses itself and tries again; everything else about an item is written down and left behind. A
// conflict (409) fails the item, and the run where it is asked to start; at a backup's end it is
// believed after a while, as any other refusal is, at a restore's at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <optional>

#include "base/disk_room.h"
#include "base/error_codes.h"
#include "base/sharing_retry.h"
#include "storage/local/localerror.h"

namespace dorvo {

constexpr uint32_t errorCancelled = 1223;
constexpr uint32_t errorRefused = 10061;
constexpr uint32_t errorHostNotFound = 11001;  // also a machine without a network looking up a name
constexpr uint32_t errorNameTryAgain = 11002;
constexpr uint32_t errorUnauthorized = withHttpMark(401);
constexpr uint32_t errorNotAcceptable = withHttpMark(406);

// Codes of a network at fault, after which another try may succeed. A refused connection is none of
// these.
constexpr uint32_t networkErrors[] = {
    10024,              // too many sockets
    10049,              // address not available
    10050,              // network down
    10051,              // network unreachable
    10053,              // connection aborted
    10054,              // connection reset
    10057,              // not connected
    10058,              // shut down
    10060,              // timed out
    10064,              // host down
    10065,              // host unreachable
    10067,              // too many processes
    10070,              // stale handle
    10101,              // graceful disconnect
    withHttpMark(503),  // service unavailable
    withHttpMark(504),  // gateway timeout
};

constexpr bool isNetworkError(uint32_t code) {
    return std::find(std::begin(networkErrors), std::end(networkErrors), code) !=
           std::end(networkErrors);
}

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

// Passes without anybody's doing or with the user's: there is room again on a full disk some day,
// and a scanner lets go of a file.
constexpr bool isPassing(uint32_t code) {
    return isDiskFull(code) || isHeld(code);
}

// The run's list could not be made, the storage could not be started, or a file of the run's own
// could not be used.
constexpr FailureAction stepFailure(const Failure& failure) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isTransient(failure) || isPassing(failure.code) ? FailureAction::pause
                                                           : FailureAction::fail;
}

// How often the end of a run is tried, an hour with the usual time between the tries, before an
// answer is believed: it might change, or be that of a gate between here and the service.
constexpr unsigned endTries = 15;

// What has kept a run from its end, one time after the other.
struct EndFailures {
    uint32_t code = 0;   // of the last
    unsigned alike = 0;  // in a row with the last one's code: no other has confirmed it
    unsigned all = 0;
};

// A try that was broken off says nothing.
constexpr EndFailures withOneMore(const EndFailures& before, const Failure& failure) {
    if (isCancelled(failure)) {
        return before;
    }
    return {failure.code, before.code == failure.code ? before.alike + 1 : 1, before.all + 1};
}

// The storage could not complete the run. All that was stored is dropped with a run that fails
// here, so it takes a clear no. A conflict says that the run is not whole, or not in the state for
// it: who no longer knows the run refuses its next start.
constexpr FailureAction endFailure(const Failure& failure, const EndFailures& failures) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    const unsigned tries = isHttpStatus(failure.code) ? endTries : 1;
    return isRefusal(failure.code) && failures.alike >= tries ? FailureAction::fail
                                                              : FailureAction::pause;
}

// The storage could not be started for a run that only has to end, which is lost for no less than
// at its end. A conflict here says that the storage has given the run up.
constexpr FailureAction startToEndFailure(const Failure& failure, const EndFailures& failures) {
    return !isCancelled(failure) && failure.code == withHttpMark(409)
               ? FailureAction::fail
               : endFailure(failure, failures);
}

// The service has not heard of the end of a restore, all of whose items are in their places: that
// is worth some tries, and no more.
constexpr FailureAction restoreEndFailure(const Failure& failure, const EndFailures& failures) {
    if (isCancelled(failure)) {
        return FailureAction::leave;
    }
    return isRefusal(failure.code) || failures.all >= endTries ? FailureAction::settle
                                                               : FailureAction::pause;
}

// How far a run has come. Any difference counts as progress.
struct RunProgress {
    uint64_t listed = 0;    // bytes of its list's items
    uint64_t position = 0;  // in the list
    uint32_t blocks = 0;    // of the current item, accepted
    uint64_t offset = 0;    // in the current item

    bool operator==(const RunProgress&) const = default;
};

// How long a run that has parked itself waits before it goes on: 30 seconds, and longer from one
// time to the next while it fails without having come any further. What a process forgets when it
// ends begins again with 30 seconds.
class ResumeBackoff {
public:
    static constexpr uint64_t firstMs = 30'000;
    // Whoever gets his network back should not have to wait for long.
    static constexpr uint64_t longestMs = 300'000;

    uint64_t afterFailureAt(const RunProgress& progress) {
        waitMs_ = last_ == progress ? std::min(2 * waitMs_, longestMs) : firstMs;
        last_ = progress;
        return waitMs_;
    }
    // Another run begins.
    void reset() { last_.reset(); }

private:
    std::optional<RunProgress> last_;  // at the last failure
    uint64_t waitMs_ = firstMs;
};

}  // namespace dorvo
