#include "control/openengine.h"

#include <windows.h>

#include "control/remoteengine.h"
#include "engine/dataowner.h"
#include "engine/inprocessengine.h"

namespace dorvo::agent {
namespace {

// How long a resident agent may take from owning the data directory to answering.
constexpr ULONGLONG patienceMs = 5'000;

}  // namespace

std::unique_ptr<Engine> openEngine() {
    DirectoryWatch watch;
    const ULONGLONG end = GetTickCount64() + patienceMs;
    for (;;) {
        if (auto resident = RemoteEngine::connect()) {
            return resident;
        }
        const ULONGLONG now = GetTickCount64();
        const auto left = static_cast<DWORD>(now < end ? end - now : 0);
        try {
            return std::make_unique<InProcessEngine>(DataOwner::Patience{
                .giveUp = watch.handle(), .ms = watch.handle() == nullptr ? 0 : left, .waits = {}});
        } catch (const DataOwned&) {
            // A file has come or gone: the owner may be a resident that answers by now.
            if (left == 0 || watch.wait(nullptr, 0) != DirectoryWatch::Woken::change) {
                throw;
            }
        }
    }
}

}  // namespace dorvo::agent
