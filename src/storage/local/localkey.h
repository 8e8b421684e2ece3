// Which of the user's keys a run in a folder takes.
//
// Each backup's document names the key that it was made with: a job goes on with the key that it
// began with, and a restore takes that of its backup. False is logged: the errors of userkey.h,
// 10070, 13, and for a restore 1168 and 5023 as LocalPlace::loadCompleted has them.
#pragma once

#include <string>

#include "storage/local/localplace.h"
#include "storage/userkey.h"

namespace dorvo {

// `instanceId` is the run's. A job without any backup takes the machine's own key, which is made
// when the user has none.
bool findBackupKey(const LocalPlace& place, const std::string& instanceId, const std::string& user,
                   UserKey& key);

// Of the completed backup that is to be restored.
bool findRestoreKey(const LocalPlace& place, const std::string& instanceId, const std::string& user,
                    UserKey& key);

}  // namespace dorvo
