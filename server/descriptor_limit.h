// The files that the process may have open, sockets included, and the connections that leave room
// for the others.
#pragma once

#include <cstddef>

namespace dorvo {

// Raises the limit as far as the system lets it be raised; gives what is in force then.
size_t raiseDescriptorLimit();

// As many of the wanted connections as leave the files that serving needs. Throws std::exception
// where that would be too few.
size_t fittingConnections(size_t wanted, size_t descriptors);

}  // namespace dorvo
