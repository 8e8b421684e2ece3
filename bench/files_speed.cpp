// files_speed TREE TARGET: what a backup client does with files, built for both systems, so that
// the difference between two runs over the same tree is what Wine costs.
//
// Walks the tree with sizes and times, reads every file, and writes one of each size into TARGET
// (which is made) with its time; reads and writes with as many threads as there are processors.
// Prints the seconds of each as JSON.
#include <fcntl.h>
#ifdef _WIN32
#include <io.h>
#else
#include <unistd.h>
#endif

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

namespace fs = std::filesystem;

namespace {

#ifdef _WIN32
constexpr int reading = O_RDONLY | O_BINARY, writing = O_WRONLY | O_CREAT | O_TRUNC | O_BINARY;
int openFile(const fs::path& path, int how) {
    return _wopen(path.c_str(), how, 0600);
}
#else
constexpr int reading = O_RDONLY, writing = O_WRONLY | O_CREAT | O_TRUNC;
int openFile(const fs::path& path, int how) {
    return open(path.c_str(), how, 0600);
}
#endif

constexpr unsigned pieceSize = 131072;

struct Entry {
    fs::path path;
    std::uintmax_t size;
    fs::file_time_type time;
};

[[noreturn]] void fail(const fs::path& path) {
    std::cerr << "files_speed: " << path.string() << " failed\n";
    std::exit(1);
}

double seconds(const std::function<void()>& work) {
    const auto begun = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double>(std::chrono::steady_clock::now() - begun).count();
}

std::vector<Entry> walk(const fs::path& tree) {
    std::vector<Entry> entries;
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(tree))
        if (entry.is_regular_file())
            entries.push_back({entry.path(), entry.file_size(), entry.last_write_time()});
    return entries;
}

// work(number, buffer) for each entry, on all processors.
void everywhere(std::size_t count, const std::function<void(std::size_t, char*)>& work) {
    std::atomic<std::size_t> next = 0;
    std::vector<std::thread> threads(std::max(1U, std::thread::hardware_concurrency()));
    for (std::thread& thread : threads)
        thread = std::thread([&] {
            std::vector<char> buffer(pieceSize);
            for (std::size_t number; (number = next++) < count;)
                work(number, buffer.data());
        });
    for (std::thread& thread : threads)
        thread.join();
}

void readFile(const fs::path& path, char* buffer) {
    const int file = openFile(path, reading);
    if (file < 0)
        fail(path);
    while (read(file, buffer, pieceSize) > 0) {
    }
    close(file);
}

void writeFile(const fs::path& path, const Entry& like, const char* buffer) {
    const int file = openFile(path, writing);
    if (file < 0)
        fail(path);
    for (std::uintmax_t left = like.size; left != 0;) {
        const auto size = static_cast<unsigned>(std::min<std::uintmax_t>(left, pieceSize));
        if (write(file, buffer, size) != static_cast<int>(size))
            fail(path);
        left -= size;
    }
    close(file);
    fs::last_write_time(path, like.time);
}

}  // namespace

int main(int count, char** arguments) {
    if (count != 3) {
        std::cerr << "usage: files_speed TREE TARGET\n";
        return 2;
    }
    const fs::path target = arguments[2];
    fs::create_directories(target);
    std::vector<Entry> entries;
    const double walking = seconds([&] { entries = walk(arguments[1]); });
    const double reads = seconds([&] {
        everywhere(entries.size(),
                   [&](std::size_t i, char* buffer) { readFile(entries[i].path, buffer); });
    });
    const double writes = seconds([&] {
        everywhere(entries.size(), [&](std::size_t i, const char* buffer) {
            writeFile(target / std::to_string(i), entries[i], buffer);
        });
    });
    std::cout << R"({"walking": )" << walking << R"(, "reading": )" << reads << R"(, "writing": )"
              << writes << "}\n";
}
