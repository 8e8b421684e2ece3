// Tests that hold for backup and restore jobs alike: derive a fixture from EachJob and give it the
// kinds with TYPED_TEST_SUITE(Fixture, JobKinds, JobKindNames).
#pragma once

#include <string>
#include <type_traits>

#include "job/scripted_job.h"

namespace dorvo::test {

template <class Kind>
class EachJob : public ScriptedJobTest {
protected:
    auto makeJob() {
        if constexpr (std::is_same_v<Kind, ScriptedBackup>) {
            return makeBackup();
        } else {
            return makeRestore();
        }
    }
};

struct JobKindNames {
    template <class Kind>
    static std::string GetName(int) {
        return std::is_same_v<Kind, ScriptedBackup> ? "Backup" : "Restore";
    }
};
using JobKinds = testing::Types<ScriptedBackup, ScriptedRestore>;

}  // namespace dorvo::test
