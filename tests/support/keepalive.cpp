// Keeps a Wine prefix's servers up: says that it runs, then waits for the end of its input.
#include <cstdio>

int main() {
    std::puts("ready");
    std::fflush(stdout);
    while (std::getchar() != EOF) {
    }
    return 0;
}
