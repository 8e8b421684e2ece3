// handles.exe PID: counts the handles of a process, a line "kind number" for each kind of object.
#include <windows.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <map>
#include <vector>

namespace {

// What the platform answers to a query for all handles of all processes.
struct Handle {
    void* object;
    uintptr_t process;
    uintptr_t value;
    uint32_t access;
    uint16_t creator;
    uint16_t kind;
    uint32_t attributes;
    uint32_t reserved;
};
struct Table {
    uintptr_t count;
    uintptr_t reserved;
    Handle handles[1];
};

constexpr ULONG allHandles = 64;  // SystemExtendedHandleInformation
constexpr LONG tooSmall = static_cast<LONG>(0xC0000004);

using Query = LONG(NTAPI*)(ULONG what, void* answer, ULONG size, ULONG* needed);

}  // namespace

int main(int count, char** arguments) {
    const uintptr_t process = count == 2 ? std::strtoul(arguments[1], nullptr, 10) : 0;
    const auto query = reinterpret_cast<Query>(reinterpret_cast<void*>(
        GetProcAddress(GetModuleHandleW(L"ntdll"), "NtQuerySystemInformation")));
    std::vector<uint64_t> answer(1 << 16);
    LONG status = tooSmall;
    while (status == tooSmall) {
        answer.resize(answer.size() * 2);
        status = query(allHandles, answer.data(), static_cast<ULONG>(answer.size() * 8), nullptr);
    }
    if (status != 0) {
        std::cerr << "the query failed with " << std::hex << status << '\n';
        return 1;
    }
    const auto& table = *reinterpret_cast<const Table*>(answer.data());
    std::map<unsigned, unsigned> kinds;
    for (uintptr_t i = 0; i < table.count; ++i) {
        if (table.handles[i].process == process) {
            ++kinds[table.handles[i].kind];
        }
    }
    for (const auto& [kind, number] : kinds) {
        std::printf("%u %u\n", kind, number);
    }
    return kinds.empty() ? 1 : 0;
}
