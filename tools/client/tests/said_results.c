/* What the header says, for the tests: the result of a call, by number and as a sentence. */
#include "../bootlume-client.h"

#include <stdio.h>

int main(int argc, char *argv[]) {
    enum bootlume_result result = BOOTLUME_FAILED;
    if (argc == 2 && strcmp(argv[1], "quit") == 0) {
        result = bootlume_quit();
    } else if (argc == 4 && strcmp(argv[1], "text") == 0) {
        result = bootlume_send_text(argv[2], argv[3]);
    } else if (argc == 4 && strcmp(argv[1], "check") == 0) {
        result = bootlume_check_text(argv[2], argv[3]);
    }
    puts(bootlume_reason(result));
    return (int)result;
}
