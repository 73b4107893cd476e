#!/usr/bin/env python3
"""Serves movies slowly to headless Chromium and tells how much of each it had been sent when its first picture came.

usage: first_frame.py WEB_MOVIE PLAIN_MOVIE

Ends with status 1 when the first movie, whose index lies in front, needs a tenth of its bytes or more, or when the
second one, whose index lies behind, does not need more than that: then the server or the browser hides the difference.
"""

import http.server
import os
import pathlib
import shutil
import subprocess
import sys
import tempfile
import threading
import time

BLOCK = 16384
BYTES_A_SECOND = 1_500_000
MOST_SECONDS = 120

PAGE = """<!doctype html><title>movie</title><video muted autoplay preload="auto" src="/movie.mp4"></video><script>
document.querySelector('video').requestVideoFrameCallback(() => fetch('/shown'));
</script>"""


class SlowServer(http.server.ThreadingHTTPServer):
    """One movie, without byte ranges: what plays is what has come from the front."""

    def __init__(self, movie):
        super().__init__(("127.0.0.1", 0), Handler)
        self.movie = movie.read_bytes()
        self.sent = 0
        self.sent_when_shown = None
        self.shown = threading.Event()


class Handler(http.server.BaseHTTPRequestHandler):
    def log_message(self, *_):
        pass

    def do_GET(self):
        if self.path == "/movie.mp4":
            self.send_movie()
            return
        if self.path == "/shown" and not self.server.shown.is_set():
            self.server.sent_when_shown = self.server.sent
            self.server.shown.set()
        body = PAGE.encode() if self.path == "/" else b""
        self.send_response(200)
        self.send_header("Content-Type", "text/html")
        self.send_header("Content-Length", str(len(body)))
        self.end_headers()
        self.wfile.write(body)

    def send_movie(self):
        movie = self.server.movie
        self.send_response(200)
        self.send_header("Content-Type", "video/mp4")
        self.send_header("Content-Length", str(len(movie)))
        self.end_headers()
        try:
            for start in range(0, len(movie), BLOCK):
                self.wfile.write(movie[start:start + BLOCK])
                self.server.sent = max(self.server.sent, start + BLOCK)
                time.sleep(BLOCK / BYTES_A_SECOND)
        except OSError:
            pass  # the browser has closed


def browser():
    path = shutil.which("chromium") or sys.exit("first_frame.py: there is no chromium")
    options = ["--headless", "--disable-gpu", "--disable-quic", "--no-first-run", "--disable-background-networking",
               "--disable-component-update", "--disable-sync", "--mute-audio", "--autoplay-policy=no-user-gesture-required"]
    return [path, *options, *(["--no-sandbox"] if os.geteuid() == 0 else [])]


def share_before_first_picture(movie):
    server = SlowServer(movie)
    threading.Thread(target=server.serve_forever, daemon=True).start()
    with tempfile.TemporaryDirectory() as profile:
        process = subprocess.Popen([*browser(), f"--user-data-dir={profile}", "--remote-debugging-port=0",
                                    f"http://127.0.0.1:{server.server_address[1]}/"],
                                   stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        shown = server.shown.wait(MOST_SECONDS)
        process.terminate()
        process.wait()
    server.shutdown()
    return server.sent_when_shown / len(server.movie) if shown else None


def main():
    if len(sys.argv) != 3:
        sys.exit(__doc__)
    web, plain = (share_before_first_picture(pathlib.Path(path)) for path in sys.argv[1:])
    for name, share in (("index in front", web), ("index behind", plain)):
        print(f"{name}: " + ("no picture came" if share is None else f"first picture after {100 * share:.1f} % of the file"))
    if web is None or web >= 0.1:
        sys.exit("a movie for the web is not shown while it loads")
    if plain is not None and plain < 0.1:
        sys.exit("the movie with its index behind is shown as soon: this run tells nothing")


if __name__ == "__main__":
    main()
