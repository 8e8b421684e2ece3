#include "source/filterpolicy.h"

namespace dorvo {

FilterPolicy::~FilterPolicy() = default;

}  // namespace dorvo
