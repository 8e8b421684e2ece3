#include "storage/local/localplace.h"
#include "contract/contractplace.h"
#include "contract/packagefiles.h"
#include "storage/local/localbackend.h"
#include "support/temporary_folder.h"

namespace dorvo::test {
namespace {

class LocalContractPlace : public ContractPlace {
public:
    const Backend& backend() const override { return backend_; }
    const char* machine() const override { return "machine"; }
    void damage(const StoredRun& run) override {
        flipFirstByte(LocalPlace(folder_.path(), run.machine, run.jobDefinitionId)
                          .packages(run.jobInstanceId));
    }
    uint64_t kept() override { return packageBytes(packageFiles(folder_.path(), L"packages")); }
    DWORD wrongState() const override { return ERROR_INVALID_STATE; }
    bool namesWhatIsMissing() const override { return false; }

private:
    TemporaryFolder folder_{L"contract backups"};
    const LocalBackend backend_{folder_.path(), "user", "machine"};
};

}  // namespace

NamedPlace localPlace() {
    return {"Local", [] { return std::make_unique<LocalContractPlace>(); }};
}

}  // namespace dorvo::test
