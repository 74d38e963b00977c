"""The pages that the board's own program draws on the virtual device, with the board's libraries
and fonts: what the kernel's screen is compared with."""
import signal

from desk import Desk
from desk.pictures import WHITE

STEPS = 66

_known = {}


class Reference:
    """Pages of one build. root is the board's folder of files, and fonts a font configuration, whose
    folders are looked for in it; by default all of the board's fonts and rules."""

    def __init__(self, build, root, emulated, fonts=None):
        self._root = root
        self._configuration = fonts
        self._key = (build, root, fonts)
        self._products = {"bootlume": build / "bin/bootlume", "library": build / "lib/libvirtual-device.so"}
        if emulated:
            self._products |= {"run_prefix": ["qemu-arm-static", "-L", str(root)]}

    def page(self, *texts, language=None):
        """The 66 pictures of one turn of the ring, in their order."""
        key = (self._key, texts, language)
        if key not in _known:
            with Desk(**self._products) as desk:
                if language:
                    desk.language(language)
                _known[key] = self._turn(desk, texts)
        return _known[key]

    def _turn(self, desk, texts):
        splash = desk.start(*texts, env={"FONTCONFIG_FILE": self._fonts(desk)})
        pages, first, number = {}, None, 0
        while len(pages) < STEPS:
            frame = desk.screen.wait_for_frame(number + 1)
            number = frame.number
            if frame.pixels != WHITE:
                first = first or number
                pages.setdefault((number - first) % STEPS, frame.pixels)
        splash.signal(signal.SIGINT)
        assert splash.wait() == 0, splash.stderr
        return [pages[step] for step in range(STEPS)]

    def _fonts(self, desk):
        """A font configuration with the board's fonts and rules and no others."""
        if "run_prefix" in self._products:
            return None  # the emulation looks into the board's folder first
        if self._configuration:
            configuration = self._configuration.read_text().replace("dir>/usr", f"dir>{self._root}/usr")
        else:
            configuration = (
                "<?xml version='1.0'?><fontconfig>"
                f"<dir>{self._root}/usr/share/fonts</dir>"
                f"<include>{self._root}/etc/fonts/conf.d</include></fontconfig>"
            )
        return desk.write("fonts.conf", configuration)
