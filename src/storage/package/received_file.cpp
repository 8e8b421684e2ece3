#include "storage/package/received_file.h"

namespace dorvo {

void received_file::forget() {
    static_cast<void>(file.release());
    *this = received_file{};
}

received_file& current_received_file() {
    static received_file current;
    return current;
}

}  // namespace dorvo
