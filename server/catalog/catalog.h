// What the service knows, behind three interfaces.
//
// They are narrow so that the same service can stand on another database. Calls block, may
// come from any thread, and throw std::exception when the storage is down. A call that changes
// something has changed all of it or nothing when it returns or throws, and what it changed
// survives the death of the process. Calls that also survive a power cut say "durable". Calls that
// go over many files work piece by piece: what they had done when they threw, or the process died,
// stays, and the same call sets it right. Of one backup the caller makes one of them at a time.
//
// Who may touch what, and which call suits which state, is the callers' business.
#pragma once

#include "catalog/accounts.h"
#include "catalog/instances.h"
#include "catalog/restores.h"

namespace dorvo {

class Catalog : public Accounts, public Instances, public Restores {};

}  // namespace dorvo
