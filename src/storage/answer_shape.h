// Reads what a service has answered, which may be of any shape.
#pragma once

#include <stdexcept>

#include "json_spirit/json_spirit.h"

namespace dorvo {

// False when `read` meets what it does not want: a text that is no JSON, a member that is missing,
// out of range or of another type.
template <class Read>
bool hasShape(Read read) {
    try {
        read();
        return true;
    } catch (const json_spirit::Error_position&) {
        return false;
    } catch (const std::logic_error&) {
        return false;
    } catch (const std::runtime_error&) {
        return false;
    }
}

}  // namespace dorvo
