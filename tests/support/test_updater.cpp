// Stands in for the agent's updater: says that it was started by a semaphore, whose name it finds
// in its environment.
#include <windows.h>

int main() {
    char name[128];
    const DWORD length = GetEnvironmentVariableA("DORVO_TEST_UPDATER", name, sizeof(name));
    if (length == 0 || length >= sizeof(name)) {
        return 1;
    }
    const HANDLE started = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, name);
    return started != nullptr && ReleaseSemaphore(started, 1, nullptr) != 0 ? 0 : 1;
}
