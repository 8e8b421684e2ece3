// Keeps a Wine prefix's servers up: says that it runs, then waits for the end of its input.
#include <cstdio>

int main() {
    if (std::puts("ready") == EOF || std::fflush(stdout) != 0) {
        return 1;
    }
    while (std::getchar() != EOF) {
    }
    return 0;
}
