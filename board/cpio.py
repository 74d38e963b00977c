"""Initramfs archives: the kernel's "newc" form, written without root rights."""
import os
import pathlib
import stat

TRAILER = "TRAILER!!!"


class Archive:
    """An archive in making; everything in it belongs to root."""

    def __init__(self):
        self._data = bytearray()
        self._inode = 0
        self._known = set()

    def _entry(self, name, mode, content=b"", device=(0, 0)):
        self._inode += 1
        links = 2 if stat.S_ISDIR(mode) else 1
        fields = (self._inode, mode, 0, 0, links, 0, len(content), 0, 0, *device, len(name) + 1, 0)
        self._data += b"070701" + b"".join(b"%08X" % field for field in fields)
        self._data += name.encode() + b"\0"
        self._pad()
        self._data += content
        self._pad()

    def _pad(self):
        self._data += b"\0" * (-len(self._data) % 4)

    def _parents(self, name):
        for parent in reversed(pathlib.PurePosixPath(name).parents):
            if str(parent) != "." and str(parent) not in self._known:
                self.folder(str(parent))

    def folder(self, name, mode=0o755):
        self._parents(name)
        self._known.add(name)
        self._entry(name, stat.S_IFDIR | mode)

    def file(self, name, content, mode=0o644):
        self._parents(name)
        self._entry(name, stat.S_IFREG | mode, content)

    def link(self, name, target):
        self._parents(name)
        self._entry(name, stat.S_IFLNK | 0o777, target.encode())

    def character_device(self, name, major, minor):
        self._parents(name)
        self._entry(name, stat.S_IFCHR | 0o600, device=(major, minor))

    def tree(self, root, without=()):
        """Everything below a folder of the host, but for the folders directly in it that are named."""
        for path in sorted(pathlib.Path(root).rglob("*")):
            name = str(path.relative_to(root))
            if name.partition("/")[0] in without:
                continue
            if path.is_symlink():
                self.link(name, os.readlink(path))
            elif path.is_dir():
                self.folder(name, stat.S_IMODE(path.stat().st_mode))
            else:
                self.file(name, path.read_bytes(), stat.S_IMODE(path.stat().st_mode))

    def finished(self):
        self._entry(TRAILER, 0)
        return bytes(self._data)
