// Stands in for the agent's updater: says that it was started by a semaphore, whose name it finds
// in its environment, or else by a file "updated" in its own folder.
#include <windows.h>

#include <string>

int main() {
    char name[128];
    const DWORD length = GetEnvironmentVariableA("DORVO_TEST_UPDATER", name, sizeof(name));
    if (length != 0 && length < sizeof(name)) {
        HANDLE started = OpenSemaphoreA(SEMAPHORE_MODIFY_STATE, FALSE, name);
        return started != nullptr && ReleaseSemaphore(started, 1, nullptr) != 0 ? 0 : 1;
    }
    char path[MAX_PATH];
    const std::string self(path, GetModuleFileNameA(nullptr, path, sizeof(path)));
    const std::string sign = self.substr(0, self.rfind('\\') + 1) + "updated";
    HANDLE file = CreateFileA(sign.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_ALWAYS, 0, nullptr);
    return file != INVALID_HANDLE_VALUE && CloseHandle(file) != 0 ? 0 : 1;
}
