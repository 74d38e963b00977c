#include "messages.h"

#include "bound_socket.h"
#include "closing_splash.h"
#include "splash_socket.h"

#include <grp.h>
#include <pwd.h>
#include <sys/stat.h>

#include <iostream>
#include <optional>

namespace ctl {
namespace {

using client::SplashSocket;

std::string userName(uid_t user) {
    const passwd* const entry = getpwuid(user);
    return entry != nullptr ? entry->pw_name : "user " + std::to_string(user);
}

std::string groupName(gid_t group) {
    const ::group* const entry = getgrgid(group);
    return entry != nullptr ? entry->gr_name : std::to_string(group);
}

std::string whoMaySend(const std::string& path) {
    struct stat about {};
    if (stat(path.c_str(), &about) != 0) {
        return "its folder is closed to this user";
    }
    std::string who = userName(about.st_uid);
    if (about.st_uid != 0) {
        who = "root and " + who;
    }
    if ((about.st_mode & S_IWGRP) != 0) {
        return who + " and the group " + groupName(about.st_gid) + " may send to it";
    }
    return (about.st_uid == 0 ? "only " : "") + who + " may send to it";
}

} // namespace

int complain(const std::string& text, ExitStatus status) {
    std::cerr << "bootlumectl: " << text << '\n';
    return status;
}

int cannotReach(const SplashSocket& socket) {
    const bootlume_result result = socket.probe();
    switch (result) {
    case BOOTLUME_NO_SPLASH:
        return complain("no splash answers at " + socket.path() +
                            "; 'systemctl status bootlume.service' says whether one was started",
                        EXIT_NO_SPLASH);
    case BOOTLUME_FORBIDDEN:
        return complain(socket.path() + ": permission denied: " + whoMaySend(socket.path()),
                        EXIT_FAILED);
    case BOOTLUME_NOT_SPLASH:
        return complain(socket.path() + ": " + bootlume_reason(result) +
                            "; end that program, and start the splash again",
                        EXIT_FAILED);
    default:
        return complain(socket.path() + ": " + socket.lastError(), EXIT_FAILED);
    }
}

int doesNotAnswer(const SplashSocket& socket, const std::string& what) {
    const bool closed = socket.probe() == BOOTLUME_NO_SPLASH;
    const std::optional<client::Process> process =
        closed ? client::findClosing(socket.path()) : client::findHolder(socket.path());
    if (!process) {
        return complain(what + (closed ? ": it has closed its socket; try again"
                                       : ": its process belongs to another user; root sees more"),
                        EXIT_TIMED_OUT);
    }
    const std::string pid = std::to_string(process->pid);
    std::string how = "is there; bootlume-troubleshooting(7) says what to look at";
    if (process->stopped) {
        how = "is stopped; 'kill -CONT " + pid + "' lets it go on";
    } else if (closed) {
        how = "is there without a socket: it waits for the display, or could not make one; 'kill " +
              pid + "' ends it at once";
    }
    return complain(what + ": process " + pid + " " + how, EXIT_TIMED_OUT);
}

} // namespace ctl
