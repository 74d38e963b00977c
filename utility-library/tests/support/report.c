/* Started by the tests: writes what it was given, as text, into the file that its first argument
 * names, and then does what the further arguments ask for:
 *   write:FD:TEXT   writes the text to a descriptor
 *   read:FD         reads a descriptor to its end into the report
 *   peek:FD         reads up to four bytes of a descriptor into the report, in hexadecimal
 *   exit:N          ends with a status
 * Linked statically and without sanitizers, so that it runs in an empty root and shows nothing of
 * its own. */
#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/resource.h>
#include <unistd.h>

extern char** environ;

enum { MOST_DESCRIPTORS = 4096 };

static int descriptors[MOST_DESCRIPTORS];
static int descriptor_count;

static void note_descriptor(int descriptor) {
    if (descriptor_count < MOST_DESCRIPTORS) {
        descriptors[descriptor_count++] = descriptor;
    }
}

/* Before anything is opened. */
static void find_descriptors(void) {
    DIR* const folder = opendir("/proc/self/fd");
    if (folder == NULL || readdir(folder) == NULL) {
        if (folder != NULL) {
            closedir(folder);
        }
        struct rlimit limit;
        getrlimit(RLIMIT_NOFILE, &limit);
        for (int descriptor = 0; descriptor < (int)limit.rlim_cur; ++descriptor) {
            if (fcntl(descriptor, F_GETFD) != -1) {
                note_descriptor(descriptor);
            }
        }
        return;
    }
    rewinddir(folder);
    for (struct dirent* entry; (entry = readdir(folder)) != NULL;) {
        const int descriptor = atoi(entry->d_name);
        if (entry->d_name[0] != '.' && descriptor != dirfd(folder)) {
            note_descriptor(descriptor);
        }
    }
    closedir(folder);
}

static void report_descriptors(FILE* report) {
    for (int i = 0; i < descriptor_count; ++i) {
        char link[64];
        char target[512] = "?";
        snprintf(link, sizeof link, "/proc/self/fd/%d", descriptors[i]);
        const ssize_t length = readlink(link, target, sizeof target - 1);
        if (length >= 0) {
            target[length] = '\0';
        }
        fprintf(report, "descriptor %d %s\n", descriptors[i], target);
    }
}

static void report_signals(FILE* report) {
    sigset_t blocked;
    sigprocmask(SIG_SETMASK, NULL, &blocked);
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction action;
        if (sigaction(number, NULL, &action) == 0 && action.sa_handler != SIG_DFL) {
            fprintf(report, "handler %d\n", number);
        }
        if (sigismember(&blocked, number) == 1) {
            fprintf(report, "blocked %d\n", number);
        }
    }
}

static void report_process(FILE* report, int argc, char** argv) {
    char folder[4096];
    if (getcwd(folder, sizeof folder) != NULL) {
        fprintf(report, "cwd %s\n", folder);
    }
    fprintf(report, "uid %d\neuid %d\ngid %d\negid %d\n", (int)getuid(), (int)geteuid(),
            (int)getgid(), (int)getegid());
    fprintf(report, "pid %d\nsession %d\n", (int)getpid(), (int)getsid(0));
    for (int i = 0; i < argc; ++i) {
        fprintf(report, "argument %s\n", argv[i]);
    }
    for (char** variable = environ; *variable != NULL; ++variable) {
        fprintf(report, "variable %s\n", *variable);
    }
}

static void write_text(int descriptor, const char* text) {
    if (write(descriptor, text, strlen(text)) != (ssize_t)strlen(text)) {
        _exit(101);
    }
}

static void read_all(FILE* report, int descriptor) {
    char piece[4096];
    fputs("read ", report);
    for (ssize_t length; (length = read(descriptor, piece, sizeof piece)) > 0;) {
        fwrite(piece, 1, (size_t)length, report);
    }
    fputc('\n', report);
}

static void peek(FILE* report, int descriptor) {
    unsigned char piece[4];
    const ssize_t length = read(descriptor, piece, sizeof piece);
    fputs("peek ", report);
    for (ssize_t i = 0; i < length; ++i) {
        fprintf(report, "%02x", piece[i]);
    }
    fputc('\n', report);
}

static int run_request(FILE* report, const char* request) {
    const char* const colon = strchr(request, ':');
    const int number = colon == NULL ? -1 : atoi(colon + 1);
    if (strncmp(request, "write:", 6) == 0) {
        write_text(number, strchr(colon + 1, ':') + 1);
    } else if (strncmp(request, "read:", 5) == 0) {
        read_all(report, number);
    } else if (strncmp(request, "peek:", 5) == 0) {
        peek(report, number);
    } else if (strncmp(request, "exit:", 5) == 0) {
        return number;
    }
    return 0;
}

int main(int argc, char** argv) {
    find_descriptors();
    FILE* const report = argc > 1 ? fopen(argv[1], "w") : NULL;
    if (report == NULL) {
        return 100;
    }
    report_descriptors(report);
    report_signals(report);
    report_process(report, argc, argv);
    int status = 0;
    for (int i = 2; i < argc; ++i) {
        status = run_request(report, argv[i]);
    }
    fclose(report);
    return status;
}
