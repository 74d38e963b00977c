"""The line between host and board: requests one way, frames with size and checksum the other."""
import base64
import gzip
import hashlib
import queue
import socket
import threading
import time

# How long an answer may take. It only bounds a failure: where the board ends, the wait ends at once,
# and a busy host makes a board many times slower.
PATIENCE = 400


class BoardSilent(Exception):
    """The board did not answer in time, or cannot any more."""


class Damaged(Exception):
    """A frame's content is not what its head says."""


def parse_frames(lines):
    """Yields (id, status, content) for each frame of an iterator of lines; content is None where
    the frame is damaged."""
    head, body = None, []
    for line in lines:
        words = line.split()
        if len(words) == 5 and words[0] == "#B":
            head, body = words, []
        elif head and len(words) == 2 and words[0] == "#E":
            yield head[1], int(head[2]), _content(head, words, body)
            head = None
        elif head:
            body.append(line)


def _content(head, end, body):
    try:
        packed = base64.b64decode("".join(body), validate=True)
        if end[1] != head[1] or len(packed) != int(head[3]):
            return None
        return gzip.decompress(packed) if hashlib.sha256(packed).hexdigest() == head[4] else None
    except (ValueError, OSError, EOFError):
        return None


class Channel:
    """Listens on a socket file that the emulator connects to. One request at a time. ended() tells
    why nothing more can come, in a word or more, and is empty as long as something can."""

    def __init__(self, path, ended):
        self._ended = ended
        self._server = socket.socket(socket.AF_UNIX, socket.SOCK_STREAM)
        self._server.bind(str(path))
        self._server.listen(1)
        self._connection = None
        self._frames = queue.Queue()
        self._number = 0
        self.on_frame = None

    def accept(self, timeout):
        self._server.settimeout(timeout)
        self._connection, _ = self._server.accept()
        self._connection.settimeout(None)
        threading.Thread(target=self._read, daemon=True).start()

    def close(self):
        for end in (self._connection, self._server):
            if end:
                end.close()

    def _read(self):
        stream = self._connection.makefile("r", encoding="ascii", errors="replace")
        try:
            for frame in parse_frames(line.strip() for line in stream):
                if self.on_frame:
                    self.on_frame(*frame)
                else:
                    self._frames.put(frame)
        except OSError:
            pass

    def wait_for(self, wanted, deadline=PATIENCE):
        """The next frame with that id; frames with other ids are of requests given up."""
        end = time.monotonic() + deadline
        while True:
            try:
                name, status, content = self._frames.get(timeout=0.5)
            except queue.Empty:
                reason = self._ended()
                if reason:
                    raise BoardSilent(f"no answer '{wanted}': {reason}") from None
                if time.monotonic() > end:
                    raise BoardSilent(f"no answer '{wanted}' within {deadline} s") from None
                continue
            if name == wanted:
                return status, content

    def post(self, script):
        """Has the script run on the board, whether an answer comes or not; the answer's id."""
        code = base64.b64encode(script.encode()).decode()
        sum_ = hashlib.sha256(code.encode()).hexdigest()[:16]
        self._number += 1
        name = str(self._number)
        self._connection.sendall(f"R {name} {sum_} {code}\n".encode())
        return name

    def request(self, script):
        """Runs the script on the board: its status and what it wrote."""
        name = self.post(script)
        status, content = self.wait_for(name)
        if content is None or status == 254:
            raise Damaged(f"the answer to request {name} came damaged")
        return status, content
