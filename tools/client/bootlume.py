"""How a Python program talks to the boot splash. Take this file from the package or copy it.

    import bootlume

    try:
        bootlume.send_text("Brem K5 Start", "Network\\nPlease wait.")
    except bootlume.Error:
        pass  # go on: a splash that is not there is no reason to stop

No function waits. A text counts as sent once the system has it: there are no answers.
"""

import errno
import os
import socket


class Error(OSError):
    """The splash cannot be reached; errno says why, as for any OSError."""


class NoSplash(Error):
    """None has been started, or it has ended."""


class Busy(Error):
    """Its queue is full: it is stopped, or has no time. Try later."""


class Forbidden(Error):
    """This user may not write to the socket."""


_KINDS = {
    errno.ENOENT: NoSplash,
    errno.ENOTDIR: NoSplash,
    errno.ECONNREFUSED: NoSplash,
    errno.ECONNRESET: NoSplash,
    errno.ENOTCONN: NoSplash,
    errno.EPIPE: NoSplash,
    errno.EAGAIN: Busy,
    errno.ENOBUFS: Busy,
    errno.EACCES: Forbidden,
    errno.EPERM: Forbidden,
}


def _send(command):
    # Another splash than the device's, so that a program can be tried with it.
    path = os.environ.get("BOOTLUME_SOCKET", "/tmp/.bootlume")
    with socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM) as splash:
        splash.setblocking(False)
        try:
            splash.connect(path)
            splash.send(command)
        except OSError as error:
            kind = _KINDS.get(error.errno, Error)
            raise kind(error.errno, error.strerror, path) from None


def _has_control(text):
    return any((character < " " and character != "\n") or character == "\x7f" for character in text)


def check_text(title, lines):
    """Raises ValueError if the socket cannot carry the texts as they are meant."""
    refusals = (
        (";" in title, "the title holds a semicolon, which separates the title from the lines"),
        (";" in lines, "a line holds a semicolon, which the splash would take for the end of the lines"),
        ("\n" in title, "the title holds a newline; it is one line"),
        (_has_control(title + lines), "the text holds a control character, which no font can draw"),
        (not lines, "there is no line; for a page with a title alone, send one line with one blank"),
        (
            "\n" in lines and "\\n" in lines,
            "a line holds a backslash and an n, which the splash cannot tell from the end of a line; "
            "that form is for a single text with all lines",
        ),
        (
            lines.find("\\n") == len(lines) - 2 and len(lines) > 1,
            "the only line ends with a backslash and an n, which would stand on the screen; they go "
            "between two lines: leave them out",
        ),
    )
    for refused, reason in refusals:
        if refused:
            raise ValueError(reason)


def send_text(title, lines):
    """Replaces the texts of the page.

    `lines` holds one or more lines, separated by newlines or by a backslash and an n. Raises ValueError
    for what the socket cannot carry (UnicodeEncodeError, which is one, for what is not UTF-8), and Error
    if the splash cannot be reached.
    """
    check_text(title, lines)
    _send(f"{title};{lines}".encode())


def quit():  # pylint: disable=redefined-builtin
    """Asks the splash to end.

    One that has only just been started may lose the message: call this again, some 20 times a second,
    until it raises NoSplash or you have waited long enough.
    """
    _send(b"QUIT")
