/* Writes the time (CLOCK_MONOTONIC, ns) to standard output and becomes the program that is named:
 * from here to the program's first picture is its start.
 *
 *   stamped PROGRAM [ARGUMENT]... */
#include <stdio.h>
#include <time.h>
#include <unistd.h>

int main(int argc, char** argv) {
    struct timespec now;
    char text[32];
    if (argc < 2) {
        return 2;
    }
    clock_gettime(CLOCK_MONOTONIC, &now);
    const int length = snprintf(text, sizeof text, "%lld\n",
                                (long long)now.tv_sec * 1000000000 + now.tv_nsec);
    if (length < 0 || write(STDOUT_FILENO, text, (size_t)length) != length) {
        return 3;
    }
    execv(argv[1], argv + 1);
    perror(argv[1]);
    return 4;
}
