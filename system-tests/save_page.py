"""Saves a page that the program itself draws, as a picture:

    /usr/bin/python3 system-tests/save_page.py docs/images/page.png
    /usr/bin/python3 system-tests/save_page.py page.png "Brem K5" "Bitte warten" --frame 40
"""

import argparse
from pathlib import Path

from reference_page import picture
from virtual_device import Desk

FIRST = 2  # the first picture on the screen is the white one of the set-up


def arguments():
    parser = argparse.ArgumentParser(description="Saves a page that the program itself draws.")
    parser.add_argument("file", type=Path, help="the picture to write")
    parser.add_argument("title", nargs="?", default="Brem K5")
    parser.add_argument("lines", nargs="?", default="Das Gerät wird gestartet\nBitte warten")
    parser.add_argument("--frame", type=int, default=8, help="of the ring's turn (%(default)s)")
    parser.add_argument("--language", help="of the device, for example zh")
    parser.add_argument("--build-dir", type=Path, default=None, help="default: build/release")
    return parser.parse_args()


def main():
    wanted = arguments()
    build = wanted.build_dir or Path(__file__).resolve().parent.parent / "build/release"
    with Desk(bootlume=build / "bin/bootlume",
              library=build / "lib/libvirtual-device.so") as desk:
        if wanted.language:
            desk.language(wanted.language)
        # The screen stands still from that frame on.
        running = desk.start(wanted.title, wanted.lines, refresh=0,
                             faults=f"VIDIOC_QBUF@{wanted.frame + FIRST + 1}=block")
        frame = running.screen.wait_for_frame(wanted.frame + FIRST)
    picture(frame.pixels).save(wanted.file, optimize=True)
    print(f"{wanted.file}: frame {frame.number - FIRST}, {frame.width} x {frame.height}")


if __name__ == "__main__":
    main()
