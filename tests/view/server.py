"""Runs `nq360 view` on a folder, and speaks to it as a browser would, or worse."""
import http.client
import json
import os
import shutil
import signal
import socket
import subprocess
import tempfile
from pathlib import Path

COMMAND = os.environ["NQ360"]
# How long anything may take on a busy machine before a test gives up.
PATIENCE = 120


def installed_command(folder, page=None):
    """A copy of the command beside a page, as it is installed; without `page` a page of one line."""
    root = Path(folder)
    (root / "bin").mkdir()
    shutil.copy(COMMAND, root / "bin" / "nq360")
    place = root / "share" / "nq360" / "view"
    if page:
        shutil.copytree(page, place)
    else:
        place.mkdir(parents=True)
        (place / "index.html").write_text("<!doctype html><title>page</title>")
    return str(root / "bin" / "nq360")


class Server:
    def __init__(self, command, *words, cache, path=None, cwd=None):
        """`path`: a folder of programs that are found before the system's."""
        environment = {**os.environ, "XDG_CACHE_HOME": str(cache)}
        if path:
            environment["PATH"] = f"{path}:{environment['PATH']}"
        self.process = subprocess.Popen([command, "view", "--json", *map(str, words)], stdin=subprocess.DEVNULL,
                                        stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=environment, cwd=cwd)
        line = self.process.stdout.readline()
        if not line:
            raise AssertionError(self.process.stderr.read())
        self.address = json.loads(line)["address"]
        self.host = self.address.split("/")[2]
        self.port = int(self.host.split(":")[1])
        self.key = self.address.split("key=")[1]
        self.cookie = f"nq360-{self.port}={self.key}"

    def ask(self, path, method="GET", body=None, **headers):
        """Status, headers and body of the answer to whoever has the cookie."""
        connection = http.client.HTTPConnection(self.host, timeout=PATIENCE)
        names = {name.replace("_", "-"): value for name, value in headers.items()}
        if body is not None:
            names.setdefault("Content-Type", "application/json")
            body = json.dumps(body)
        connection.request(method, path, body, {"Cookie": self.cookie, **names})
        answer = connection.getresponse()
        data = answer.read()
        connection.close()
        return answer.status, answer.headers, data

    def json(self, path, method="GET", body=None):
        status, _, data = self.ask(path, method, body)
        if status >= 300:
            raise AssertionError(f"{path}: {status} {data}")
        return json.loads(data)

    def shots(self):
        """The list once all files have been read."""
        while True:
            listing = self.json("/api/shots")
            if not listing["pending"]:
                return listing

    def raw(self, data):
        """All that comes back for these bytes, until the server closes."""
        with socket.create_connection(("127.0.0.1", self.port), timeout=PATIENCE) as connection:
            connection.sendall(data)
            answer = b""
            try:
                while True:
                    more = connection.recv(65536)
                    if not more:
                        return answer
                    answer += more
            except ConnectionResetError:
                return answer

    def raw_status(self, data):
        answer = self.raw(data)
        return int(answer.split()[1]) if answer else None

    def events(self, number):
        """All that an export tells until it ends."""
        _, _, data = self.ask(f"/api/exports/{number}")
        return [json.loads(line[6:]) for line in data.decode().splitlines() if line.startswith("data: ")]

    def watch(self, number):
        """The same, each when it is told."""
        connection = http.client.HTTPConnection(self.host, timeout=PATIENCE)
        connection.request("GET", f"/api/exports/{number}", headers={"Cookie": self.cookie})
        answer = connection.getresponse()
        try:
            for line in answer:
                if line.startswith(b"data: "):
                    yield json.loads(line[6:])
        finally:
            connection.close()

    def stop(self, number=signal.SIGINT):
        if self.process.poll() is None:
            self.process.send_signal(number)
        status = self.process.wait(PATIENCE)
        self.process.stdout.close()
        self.process.stderr.close()
        return status


def temporary_folder(test):
    folder = tempfile.mkdtemp(prefix="nq360-view-")
    test.addCleanup(shutil.rmtree, folder, True)
    return Path(folder)
