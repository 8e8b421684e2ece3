#include "version.h"

namespace dorvo {

const char* const serverVersion = DORVO_VERSION;

}  // namespace dorvo
