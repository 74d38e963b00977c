"""Shows a board: `python3 -m board show|shell MACHINE [TITLE LINES]`, called by scripts/board."""
import shlex
import sys
import termios
import time

from desk import SOCKET, pictures

from . import boards


def write_picture(workshop, pixels):
    path = workshop.work / "screen.png"
    path.write_bytes(pictures.png(pixels))
    return path


def start(board, texts):
    arguments = " ".join(shlex.quote(text) for text in texts)
    board.output(f"splash {arguments} && wait_for test -S {SOCKET} && wait_for drawn")


def show(workshop, texts):
    """Boots, shows the splash, writes its picture, and ends it in order."""
    print(f"booting {workshop.machine.name}")
    with workshop.boot() as board:
        print(f"up after {board.boot_seconds:.1f} s: {board.text('uname -srm').strip()}")
        start(board, texts)
        picture = board.output("screen 1 /run/picture && cat /run/picture")
        print(f"its screen: {write_picture(workshop, picture)}")
        board.output(f"board-tool send {SOCKET} QUIT && wait_for test -e /run/splash.status")
        print(
            "the splash wrote:\n"
            + board.text("cat /run/splash.log")
            + "and ended with status "
            + board.text("cat /run/splash.status").strip()
        )


def shell(workshop, texts):
    """Hands the terminal to the board's console until the board ends."""
    saved = termios.tcgetattr(sys.stdin) if sys.stdin.isatty() else None
    try:
        with workshop.boot(shell=True) as board:
            start(board, texts)
            board.channel.on_frame = lambda name, status, content: print(
                f"\r\n{write_picture(workshop, content)}\r" if content else "\r\nthe picture came damaged\r", flush=True
            )
            while not board.ended():
                time.sleep(0.2)
    finally:
        if saved:
            termios.tcsetattr(sys.stdin, termios.TCSADRAIN, saved)


def main():
    mode, machine, *texts = sys.argv[1:]
    {"show": show, "shell": shell}[mode](boards.Workshop(machine), texts)


if __name__ == "__main__":
    main()
