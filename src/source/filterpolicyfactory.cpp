#include "source/filterpolicyfactory.h"

#include "source/extensitonsfilterpolicy.h"

namespace dorvo {
namespace {

constexpr int includeType = 1;
constexpr int excludeType = 2;

}  // namespace

std::unique_ptr<FilterPolicy> FilterPolicyFactory::create(
    int type, const std::vector<std::wstring>& extensions) {
    if (type != includeType && type != excludeType) {
        return nullptr;
    }
    return std::make_unique<ExtensitonsFilterPolicy>(type == includeType, extensions);
}

std::unique_ptr<FilterPolicy> FilterPolicyFactory::create(const BackupJobDefinition& definition) {
    return create(definition.filterType(), definition.extensions());
}

}  // namespace dorvo
