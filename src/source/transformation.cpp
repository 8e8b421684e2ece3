#include "source/transformation.h"

namespace dorvo {

Transformation::Transformation(bool compressed, uint8_t fill) : compress(compressed ? 1 : 0) {
    key.fill(fill);
    iv.fill(fill);
}

Transformation::~Transformation() {
    SecureZeroMemory(key.data(), key.size());
    SecureZeroMemory(iv.data(), iv.size());
}

}  // namespace dorvo
