"""Runs the built command: piped, or in a pseudo-terminal as a person would."""
import os
import pty
import select
import shutil
import signal
import subprocess
import tempfile
import unittest

COMMAND = os.environ["NQ360"]
SAMPLE = os.environ["NQ360_SAMPLE"]
SAMPLES = os.environ["NQ360_SAMPLES"]
SOURCE = os.environ["NQ360_SOURCE"]


def sample(name):
    """The path of a file that make_samples.py has made."""
    return os.path.join(SAMPLES, name)


def run(*arguments, **options):
    """Runs the command with its output caught as bytes."""
    return subprocess.run([COMMAND, *arguments], stdin=subprocess.DEVNULL, capture_output=True, check=False, **options)


def gray(path, width, height, seek=None):
    """The luma of a picture or of a movie's frame, as rows of bytes."""
    place = [] if seek is None else ["-ss", str(seek)]
    data = subprocess.run(
        ["ffmpeg", "-v", "error", *place, "-i", "file:" + path, "-frames:v", "1", "-vf", f"scale={width}:{height}",
         "-f", "rawvideo", "-pix_fmt", "gray", "-"], stdin=subprocess.DEVNULL, capture_output=True, check=True).stdout
    return [data[y * width:(y + 1) * width] for y in range(height)]


class Terminal:
    """The command with a terminal of 100 columns as its standard streams."""

    def __init__(self, *arguments, **environment):
        self.text = b""
        self.pid, self._terminal = pty.fork()
        if self.pid == 0:
            os.environ.update({"TERM": "xterm", "COLUMNS": "100"}, **environment)
            os.execv(COMMAND, [COMMAND, *arguments])

    def read_until(self, wanted):
        """Reads until the text has been shown; fails when the command ends before."""
        while wanted not in self.text:
            if not self._read():
                raise AssertionError(f"{wanted!r} was not shown: {self.text!r}")

    def type(self, keys):
        os.write(self._terminal, keys)

    def signal(self, number):
        os.kill(self.pid, number)

    def end(self):
        """Reads to the end; the exit status, or the negative number of the signal that ended the command."""
        while self._read():
            pass
        os.close(self._terminal)
        return os.waitstatus_to_exitcode(os.waitpid(self.pid, 0)[1])

    def _read(self):
        ready = select.select([self._terminal], [], [], 300)[0]
        try:
            data = os.read(self._terminal, 65536) if ready else b""
        except OSError:  # how Linux tells that the other end is closed
            data = b""
        self.text += data
        return bool(data)


class CommandTest(unittest.TestCase):
    """A test with a folder of its own, `self.folder`, which is the current one."""

    def setUp(self):
        self.folder = tempfile.mkdtemp(prefix="nq360-cli-")
        self.addCleanup(shutil.rmtree, self.folder)
        before = os.getcwd()
        self.addCleanup(os.chdir, before)
        os.chdir(self.folder)

    def assert_done(self, result):
        self.assertEqual(result.returncode, 0, result.stderr)

    def assert_refused(self, result, status, *texts):
        """The command ended with this status and one message that holds each text."""
        self.assertEqual(result.returncode, status, result.stderr)
        for text in texts:
            self.assertIn(text, result.stderr.decode())


def main():
    signal.signal(signal.SIGINT, signal.default_int_handler)
    unittest.main()
