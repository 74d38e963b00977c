/**
 * \file
 * How a program talks to the boot splash: one header of C99, also for C++, for Linux. Take it from
 * the package or copy it; there is nothing to link.
 *
 *     if (bootlume_send_text("Brem K5 Start", "Network\nPlease wait.") != BOOTLUME_SENT) {
 *         ... go on: a splash that is not there is no reason to stop
 *     }
 *
 * No function blocks or allocates, and each may be called from any thread. A result other than
 * BOOTLUME_SENT says why nothing was sent; bootlume_reason() gives it as a sentence. A text counts
 * as sent once the system has it: there are no answers.
 */
#ifndef BOOTLUME_CLIENT_H
#define BOOTLUME_CLIENT_H

#include <errno.h>
#include <stddef.h>
#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <sys/un.h>
#include <unistd.h>

/* C has no nullptr. NOLINTBEGIN(modernize-use-nullptr) */

enum bootlume_result {
    BOOTLUME_SENT = 0,
    /* The splash cannot be reached. */
    BOOTLUME_NO_SPLASH,  /**< none has been started, or it has ended */
    BOOTLUME_BUSY,       /**< its queue is full: it is stopped, or has no time; try later */
    BOOTLUME_FORBIDDEN,  /**< this user may not write to the socket */
    BOOTLUME_NOT_SPLASH, /**< what has the socket takes no datagrams */
    BOOTLUME_FAILED,     /**< the system refused otherwise; errno says why */
    /* The text cannot be sent as it is meant. */
    BOOTLUME_TOO_LONG,
    BOOTLUME_SEMICOLON_IN_TITLE,
    BOOTLUME_SEMICOLON_IN_LINES,
    BOOTLUME_NOT_UTF8,
    BOOTLUME_NEWLINE_IN_TITLE,
    BOOTLUME_CONTROL_CHARACTER,
    BOOTLUME_NO_LINES,
    BOOTLUME_TWO_SEPARATORS,
    BOOTLUME_BACKSLASH_AT_END
};

/** What a result means, for people: a sentence without its full stop. Never null. */
static inline const char* bootlume_reason(enum bootlume_result result) {
    switch (result) {
    case BOOTLUME_SENT:
        return "sent";
    case BOOTLUME_NO_SPLASH:
        return "no splash answers";
    case BOOTLUME_BUSY:
        return "the splash does not read its socket";
    case BOOTLUME_FORBIDDEN:
        return "this user may not send to the splash";
    case BOOTLUME_NOT_SPLASH:
        return "something other than a splash has the socket";
    case BOOTLUME_FAILED:
        return "the system refused to send";
    case BOOTLUME_TOO_LONG:
        return "the text is longer than this system sends in one message";
    case BOOTLUME_SEMICOLON_IN_TITLE:
        return "the title holds a semicolon, which separates the title from the lines";
    case BOOTLUME_SEMICOLON_IN_LINES:
        return "a line holds a semicolon, which the splash would take for the end of the lines";
    case BOOTLUME_NOT_UTF8:
        return "the text is not UTF-8";
    case BOOTLUME_NEWLINE_IN_TITLE:
        return "the title holds a newline; it is one line";
    case BOOTLUME_CONTROL_CHARACTER:
        return "the text holds a control character, which no font can draw";
    case BOOTLUME_NO_LINES:
        return "there is no line; for a page with a title alone, send one line with one blank";
    case BOOTLUME_TWO_SEPARATORS:
        return "a line holds a backslash and an n, which the splash cannot tell from the end of a "
               "line; that form is for a single text with all lines";
    case BOOTLUME_BACKSLASH_AT_END:
        return "the only line ends with a backslash and an n, which would stand on the screen; "
               "they "
               "go between two lines: leave them out";
    }
    return "an unknown result";
}

/** The splash's socket: what the environment variable BOOTLUME_SOCKET names, so that a program can
   be tried with a splash elsewhere; else the device's. */
static inline const char* bootlume_socket(void) {
    const char* path = getenv("BOOTLUME_SOCKET");
    return path != NULL ? path : "/tmp/.bootlume";
}

/** What an errno value of bootlume_connect() or of a send means. */
static inline enum bootlume_result bootlume_result_of(int error) {
    switch (error) {
    case 0:
        return BOOTLUME_SENT;
    case ENOENT:
    case ENOTDIR:
    case ECONNREFUSED: /* a file that a splash left behind */
    case ECONNRESET:
    case ENOTCONN:
    case EPIPE:
        return BOOTLUME_NO_SPLASH;
    case EAGAIN:
    case ENOBUFS:
        return BOOTLUME_BUSY;
    case EACCES:
    case EPERM:
        return BOOTLUME_FORBIDDEN;
    case EPROTOTYPE:
        return BOOTLUME_NOT_SPLASH;
    case EMSGSIZE:
        return BOOTLUME_TOO_LONG;
    default:
        return BOOTLUME_FAILED;
    }
}

/** A datagram socket that is connected to the splash at `path`, which the caller closes; -1 and
   errno if there is none. Nothing is sent. */
static inline int bootlume_connect(const char* path) {
    union {
        struct sockaddr any;
        struct sockaddr_un local;
    } to;
    int fd, error;
    memset(&to, 0, sizeof to);
    to.local.sun_family = AF_UNIX;
    if (strlen(path) >= sizeof to.local.sun_path) {
        errno = ENAMETOOLONG;
        return -1;
    }
    memcpy(to.local.sun_path, path, strlen(path) + 1);
    fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd >= 0 && connect(fd, &to.any, sizeof to.local) != 0) {
        error = errno;
        close(fd);
        errno = error;
        return -1;
    }
    return fd;
}

/** Sends the texts, one behind the other, as one command to the splash at `path`. */
static inline enum bootlume_result bootlume_send_to(const char* path, const char* const texts[],
                                                    size_t count) {
    struct iovec parts[3];
    struct msghdr message;
    size_t i;
    int error = 0;
    const int fd = bootlume_connect(path);
    if (fd < 0) {
        return bootlume_result_of(errno);
    }
    memset(&message, 0, sizeof message);
    message.msg_iov = parts;
    for (i = 0; i < count && i < sizeof parts / sizeof parts[0]; ++i) {
        /* What is sent is not const in that structure. */
        memcpy(&parts[i].iov_base, &texts[i], sizeof texts[i]);
        parts[i].iov_len = strlen(texts[i]);
        ++message.msg_iovlen;
    }
    if (sendmsg(fd, &message, MSG_DONTWAIT | MSG_NOSIGNAL) < 0) {
        error = errno;
    }
    close(fd);
    errno = error;
    return bootlume_result_of(error);
}

/** Bytes of the well-formed UTF-8 character that begins here; 0 if none does. */
static inline size_t bootlume_character_length(const char* text) {
    const int lead = text[0] & 0xFF;
    /* Of the second byte: what is less or more would be a longer form than needed, a surrogate, or
       above U+10FFFF. */
    int least = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    int most = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    size_t i;
    if (lead < 0x80) {
        return 1;
    }
    if (lead < 0xC2 || lead > 0xF4) {
        return 0;
    }
    for (i = 1; i < length; ++i) {
        const int next = text[i] & 0xFF;
        if (next < least || next > most) {
            return 0;
        }
        least = 0x80;
        most = 0xBF;
    }
    return length;
}

/** Non-zero if the whole text is well-formed UTF-8. */
static inline int bootlume_is_utf8(const char* text) {
    while (*text != '\0') {
        const size_t length = bootlume_character_length(text);
        if (length == 0) {
            return 0;
        }
        text += length;
    }
    return 1;
}

/** Non-zero if the text holds a control character other than a newline. */
static inline int bootlume_has_control(const char* text) {
    for (; *text != '\0'; ++text) {
        if (((*text & 0xFF) < 0x20 && *text != '\n') || *text == 0x7F) {
            return 1;
        }
    }
    return 0;
}

/** Whether the socket can carry the texts as they are meant: BOOTLUME_SENT, or why not. */
static inline enum bootlume_result bootlume_check_text(const char* title, const char* lines) {
    const char* const written = strstr(lines, "\\n");
    if (strchr(title, ';') != NULL) {
        return BOOTLUME_SEMICOLON_IN_TITLE;
    }
    if (strchr(lines, ';') != NULL) {
        return BOOTLUME_SEMICOLON_IN_LINES;
    }
    if (!bootlume_is_utf8(title) || !bootlume_is_utf8(lines)) {
        return BOOTLUME_NOT_UTF8;
    }
    if (strchr(title, '\n') != NULL) {
        return BOOTLUME_NEWLINE_IN_TITLE;
    }
    if (bootlume_has_control(title) || bootlume_has_control(lines)) {
        return BOOTLUME_CONTROL_CHARACTER;
    }
    if (*lines == '\0') {
        return BOOTLUME_NO_LINES;
    }
    if (written != NULL && strchr(lines, '\n') != NULL) {
        return BOOTLUME_TWO_SEPARATORS;
    }
    if (written != NULL && written[2] == '\0') {
        return BOOTLUME_BACKSLASH_AT_END;
    }
    return BOOTLUME_SENT;
}

/**
 * Replaces the texts of the page. `title` is one line; `lines` holds one or more, separated by
 * newlines or by a backslash and an n. Both are UTF-8 and not null. What the socket cannot carry is
 * not sent.
 */
static inline enum bootlume_result bootlume_send_text(const char* title, const char* lines) {
    const char* texts[3];
    const enum bootlume_result result = bootlume_check_text(title, lines);
    texts[0] = title;
    texts[1] = ";";
    texts[2] = lines;
    return result != BOOTLUME_SENT ? result : bootlume_send_to(bootlume_socket(), texts, 3);
}

/**
 * Asks the splash to end. One that has only just been started may lose the message: call this
 * again, some 20 times a second, until the result is BOOTLUME_NO_SPLASH or you have waited long
 * enough.
 */
static inline enum bootlume_result bootlume_quit(void) {
    const char* const text = "QUIT";
    return bootlume_send_to(bootlume_socket(), &text, 1);
}

/* NOLINTEND(modernize-use-nullptr) */

#endif
