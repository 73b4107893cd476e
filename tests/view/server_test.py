"""The server behind the page, from outside: who gets in, what is served, and what it stands."""
import concurrent.futures
import http.client
import itertools
import json
import os
import re
import shutil
import signal
import socket
import subprocess
import threading
import time
import unittest
from pathlib import Path

from server import COMMAND, PATIENCE, Server, installed_command, temporary_folder

SAMPLE = os.environ["NQ360_SAMPLE"]
SAMPLES = Path(os.environ["NQ360_SAMPLES"])
PAIR = ["still1.jpg", "still2.jpg"]
MOVIE = ["movie1.mov", "movie2.mov"]


def request(server, line="GET /api/shots HTTP/1.1", host=None, cookie=None, more=""):
    """A request of the person's page, but for what is given."""
    host = f"Host: {server.host}\r\n" if host is None else host
    cookie = f"Cookie: {server.cookie}\r\n" if cookie is None else cookie
    return f"{line}\r\n{host}{cookie}{more}\r\n".encode()


def ask_and_wait(server, line):
    """A connection that has asked for this and has read nothing yet."""
    connection = socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE)
    connection.sendall(request(server, line))
    return connection


class ServerTest(unittest.TestCase):
    def begin(self, names=(), *options, folder=None, cache=None):
        base = temporary_folder(self)
        self.folder = folder or base / "shots"
        self.folder.mkdir(exist_ok=True)
        for name in names:
            shutil.copy(SAMPLES / name, self.folder)
        self.cache = cache or base / "cache"
        self.server = Server(installed_command(base), self.folder, "--no-browser", *options, cache=self.cache)
        self.addCleanup(self.server.stop, signal.SIGKILL)
        return self.server

    def assert_answered(self, server):
        self.assertEqual(server.ask("/")[0], 200)


class WhoGetsIn(ServerTest):
    def test_address_gives_the_cookie_and_leads_to_the_page(self):
        server = self.begin()
        status, headers, _ = server.ask("/?key=" + server.key, Cookie="")
        self.assertEqual((status, headers["Location"]), (303, "/"))
        self.assertEqual(headers["Set-Cookie"], server.cookie + "; Path=/; HttpOnly; SameSite=Strict")
        self.assertRegex(server.key, "^[0-9a-f]{32}$")
        self.assertIn(b"page", server.ask("/")[2])

    def test_two_servers_have_two_keys(self):
        keys = {self.begin().key, self.begin().key}
        self.assertEqual(len(keys), 2)

    def test_nothing_without_the_cookie(self):
        server = self.begin(PAIR)
        wrong = ["", "Cookie: x=y\r\n", f"Cookie: nq360-{server.port}=\r\n",
                 f"Cookie: nq360-{server.port}={'0' * 32}\r\n",
                 f"Cookie: nq360-{server.port}={server.key}0\r\n", f"Cookie: nq360-{server.port}={server.key[:-1]}\r\n",
                 f"Cookie: other={server.key}\r\n", f"Cookie: xnq360-{server.port}={server.key}\r\n"]
        lines = ["GET / HTTP/1.1", "GET /index.html HTTP/1.1", "GET /api/shots HTTP/1.1",
                 "GET /files/still1.jpg HTTP/1.1",
                 "GET /api/thumbnail?file=still1.jpg HTTP/1.1", "GET /api/preview?shot=still1.jpg HTTP/1.1",
                 "GET /api/space HTTP/1.1", "POST /api/match HTTP/1.1", "POST /api/exports HTTP/1.1",
                 "GET /api/exports HTTP/1.1", "DELETE /api/exports/1 HTTP/1.1", "PUT /api/adjustments HTTP/1.1",
                 "HEAD / HTTP/1.1", "OPTIONS / HTTP/1.1", "GET /nothing HTTP/1.1",
                 f"GET /?key={'0' * 32} HTTP/1.1", "GET /?key= HTTP/1.1",
                 f"GET /api/shots?key={server.key} HTTP/1.1", f"POST /?key={server.key} HTTP/1.1"]
        for cookie in wrong:
            for line in lines:
                with self.subTest(cookie=cookie, line=line):
                    self.assertEqual(server.raw_status(request(server, line, cookie=cookie)), 403)

    def test_no_range_leads_past_the_door(self):
        server = self.begin(PAIR)
        line = "GET /files/still1.jpg HTTP/1.1"
        for value in ["x", "bytes=5-4", "bytes=", "bytes=-", "bytes=" + "-," * 4000, "bytes=0-0," * 800, "lines=0-1"]:
            for cookie, statuses in [("", (400, 403)), (None, (200, 400, 416))]:
                with self.subTest(value=value[:20], cookie=cookie):
                    more = f"Range: {value}\r\n"
                    self.assertIn(server.raw_status(request(server, line, cookie=cookie, more=more)), statuses)
        self.assert_answered(server)

    def test_other_names_for_this_machine_lead_nowhere(self):
        server = self.begin()
        for host in ["", "Host: \r\n", "Host: evil.example\r\n", f"Host: evil.example:{server.port}\r\n",
                     "Host: 127.0.0.1\r\n", "Host: 127.0.0.1:1\r\n", f"Host: localhost.evil.example:{server.port}\r\n",
                     f"Host: {server.host}\r\nHost: {server.host}\r\n",
                     f"Host: {server.host}\r\nHost: evil.example\r\n"]:
            for line in ["GET /api/shots HTTP/1.1", f"GET /?key={server.key} HTTP/1.1"]:
                with self.subTest(host=host, line=line):
                    self.assertEqual(server.raw_status(request(server, line, host=host)), 403)

    def test_other_pages_lead_nowhere(self):
        server = self.begin()
        foreign = ["Origin: http://evil.example", "Origin: null", f"Origin: https://{server.host}",
                   "Origin: http://127.0.0.1:1", f"Origin: http://localhost:{server.port}",
                   f"Origin: http://{server.host}.evil.example", "Sec-Fetch-Site: cross-site",
                   "Sec-Fetch-Site: same-site", f"Origin: http://{server.host}\r\nOrigin: http://evil.example"]
        for header in foreign:
            with self.subTest(header=header):
                self.assertEqual(server.raw_status(request(server, more=header + "\r\n")), 403)
        for header in [f"Origin: http://{server.host}", "Sec-Fetch-Site: same-origin", "Sec-Fetch-Site: none"]:
            self.assertEqual(server.raw_status(request(server, more=header + "\r\n")), 200)

    def test_listens_on_the_loopback_address_alone(self):
        server = self.begin()
        listening = set()
        for table in ["/proc/net/tcp", "/proc/net/tcp6"]:
            for line in Path(table).read_text(encoding="ascii").splitlines()[1:]:
                local, state = line.split()[1], line.split()[3]
                if local.endswith(f":{server.port:04X}") and state == "0A":
                    listening.add(local)
        self.assertEqual(listening, {f"0100007F:{server.port:04X}"})

    def test_a_port_in_use_is_told(self):
        server = self.begin()
        ended = subprocess.run([str(Path(server.process.args[0])), "view", str(self.folder), "--no-browser", "--port",
                                str(server.port)], capture_output=True, text=True, check=False)
        self.assertEqual(ended.returncode, 1)
        self.assertIn(f"port {server.port}: cannot be listened on", ended.stderr)

    def test_every_answer_says_what_a_browser_may_do_with_it(self):
        server = self.begin(PAIR)
        for path in ["/", "/api/shots", "/files/still1.jpg", "/nothing", "/api/preview?shot=x"]:
            headers = server.ask(path)[1]
            policy = headers["Content-Security-Policy"]
            self.assertIn("default-src 'none'", policy)
            self.assertRegex(policy, r"script-src 'self';")
            self.assertEqual(headers["X-Content-Type-Options"], "nosniff")
            self.assertEqual(headers["Referrer-Policy"], "no-referrer")
        answer = server.raw(request(server, cookie=""))
        self.assertIn(b"nosniff", answer)


class WhatIsServed(ServerTest):
    def test_nothing_is_packed_for_so_short_a_way(self):
        server = self.begin(PAIR)
        for path in ["/", "/api/shots"]:
            self.assertIsNone(server.ask(path, Accept_Encoding="gzip, br")[1]["Content-Encoding"])

    def test_files_come_whole_and_in_parts(self):
        server = self.begin(MOVIE)
        whole = (self.folder / "movie1.mov").read_bytes()
        status, headers, data = server.ask("/files/movie1.mov")
        self.assertEqual((status, headers["Content-Type"], data), (200, "video/mp4", whole))
        size = len(whole)
        for asked, first, last in [("0-0", 0, 0), ("100-199", 100, 199), (f"{size - 5}-", size - 5, size - 1),
                                   ("-7", size - 7, size - 1), (f"5-{size + 100}", 5, size - 1),
                                   (f"-{size + 1}", 0, size - 1)]:
            with self.subTest(asked=asked):
                status, headers, data = server.ask("/files/movie1.mov", Range=f"bytes={asked}")
                self.assertEqual((status, data), (206, whole[first:last + 1]))
                self.assertEqual(headers["Content-Range"], f"bytes {first}-{last}/{size}")
        for asked in [f"{size}-", "-0", f"{size}-{size + 1}"]:
            status, headers, _ = server.ask("/files/movie1.mov", Range=f"bytes={asked}")
            self.assertEqual((status, headers["Content-Range"]), (416, f"bytes */{size}"), asked)
        self.assertEqual(server.ask("/files/movie1.mov", Range="bytes=5-4")[0], 416)
        self.assertIn(server.ask("/files/movie1.mov", Range="bytes=0-1,5-6")[0], (200, 416))
        self.assertEqual(server.ask("/files/movie1.mov", Range="lines=1-2")[0], 400)

    def test_an_open_range_comes_in_pieces(self):
        server = self.begin()
        with open(self.folder / "long.mov", "wb") as file:
            file.truncate(4 << 30)
        status, headers, data = server.ask("/files/long.mov", Range=f"bytes={3 << 30}-")
        self.assertEqual((status, len(data)), (206, 4 << 20))
        self.assertEqual(headers["Content-Range"], f"bytes {3 << 30}-{(3 << 30) + (4 << 20) - 1}/{4 << 30}")

    def test_no_way_leads_out_of_the_folder(self):
        server = self.begin(PAIR)
        outside = self.folder.parent
        shutil.copy(SAMPLES / "still1.jpg", outside / "secret.jpg")
        (outside / "secret").mkdir()
        shutil.copy(SAMPLES / "still1.jpg", outside / "secret" / "secret.jpg")
        shutil.copy(SAMPLES / "still1.jpg", Path(str(self.folder) + "x.jpg"))
        os.symlink(outside / "secret.jpg", self.folder / "link.jpg")
        os.symlink("../secret.jpg", self.folder / "relative.jpg")
        os.symlink(outside / "secret", self.folder / "folder")
        os.symlink("/etc/passwd", self.folder / "passwd.jpg")
        os.symlink("link.jpg", self.folder / "second.jpg")
        os.symlink("/proc/self/environ", self.folder / "environ.jpg")
        (self.folder / "note.txt").write_text("note")
        (self.folder / "page.html").write_text("<script>")
        (self.folder / ".hidden.jpg").write_bytes(b"x")
        (self.folder / "inner.jpg").mkdir()
        os.mkfifo(self.folder / "pipe.jpg")
        ways = ["../secret.jpg", "..%2fsecret.jpg", "..%2Fsecret.jpg", "%2e%2e/secret.jpg", "%2e%2e%2fsecret.jpg",
                "....//secret.jpg", "..%5csecret.jpg", "%252e%252e%252fsecret.jpg", "..%c0%afsecret.jpg",
                "%2fetc%2fpasswd", "/etc/passwd", "//etc/passwd", "still1.jpg/../../secret.jpg", "./../secret.jpg",
                f"{str(outside)[1:]}/secret.jpg", "%2f" + f"{outside}/secret.jpg"[1:].replace("/", "%2f"),
                "link.jpg", "relative.jpg", "second.jpg", "folder/secret.jpg", "folder%2fsecret.jpg", "passwd.jpg",
                "environ.jpg", "still1.jpg%00.png", "%00", "../secret.jpg%00.jpg", ".hidden.jpg", ".", "..", "",
                "note.txt", "page.html", "inner.jpg", "pipe.jpg", "..%2fshotsx.jpg", "../index.html",
                "../api/../../secret.jpg", "~/secret.jpg", "file:%2f%2f%2fetc%2fpasswd"]
        for way in ways:
            with self.subTest(way=way):
                answer = server.raw(request(server, f"GET /files/{way} HTTP/1.1"))
                self.assertIn(int(answer.split()[1]), (400, 404))
                for path in [f"/api/thumbnail?file={way}", f"/api/preview?shot={way}", f"/api/space?shot={way}"]:
                    self.assertIn(server.raw_status(request(server, f"GET {path} HTTP/1.1")), (400, 404))
        names = [name for shot in server.shots()["shots"] for name in shot["files"]]
        self.assertEqual(names, PAIR)
        self.assertEqual(server.ask("/files/still1.jpg")[0], 200)

    def test_a_link_within_the_folder_is_followed(self):
        server = self.begin(PAIR)
        os.symlink("still1.jpg", self.folder / "again.jpg")
        self.assertEqual(server.ask("/files/again.jpg")[2], (self.folder / "still1.jpg").read_bytes())

    def test_shots_are_told_with_their_halves(self):
        server = self.begin([*PAIR, *MOVIE])
        shutil.copy(SAMPLES / "turned1.jpg", self.folder / "alone.jpg")
        (self.folder / "broken.mov").write_bytes(b"no movie")
        shots = {shot["id"]: shot for shot in server.shots()["shots"]}
        self.assertEqual(set(shots), {"still1.jpg", "movie1.mov", "alone.jpg", "broken.mov"})
        self.assertEqual((shots["still1.jpg"]["kind"], shots["still1.jpg"]["files"]), ("pair", PAIR))
        self.assertEqual((shots["movie1.mov"]["type"], shots["movie1.mov"]["frames"]), ("movie", 30))
        self.assertEqual(shots["alone.jpg"]["kind"], "lone")
        self.assertTrue(shots["broken.mov"]["damaged"])
        self.assertIn("cannot be read as a picture or movie", shots["broken.mov"]["why"])

    def test_new_files_appear_and_a_folder_may_go(self):
        server = self.begin()
        self.assertEqual(server.shots()["shots"], [])
        for name in PAIR:
            shutil.copy(SAMPLES / name, self.folder)
        self.assertEqual(len(server.shots()["shots"]), 1)
        for name in MOVIE:
            shutil.copy(SAMPLES / name, self.folder)
        # Without a pause: what is being looked at when it goes away is looked at again.
        for _ in range(20):
            os.rename(self.folder, str(self.folder) + "-away")
            listing = server.shots()
            self.assertEqual(listing["shots"], [])
            self.assertIn("cannot be read", listing["error"])
            os.rename(str(self.folder) + "-away", self.folder)
            self.assertEqual([shot["kind"] for shot in server.shots()["shots"]], ["pair", "pair"])

    def test_each_answer_says_once_how_long_it_may_be_kept(self):
        server = self.begin(PAIR)
        for path, said in [("/api/shots", "no-cache"), ("/api/thumbnail?file=still1.jpg", "no-cache"),
                           ("/api/preview?shot=still1.jpg", "no-store"), ("/files/still1.jpg", "no-store"),
                           ("/api/thumbnail?file=none.jpg", "no-store"), ("/", "no-store")]:
            self.assertEqual(server.ask(path)[1].get_all("Cache-Control"), [said], path)

    def test_shots_come_in_order_of_capture(self):
        server = self.begin(PAIR)
        for name, date in [("a", "2026:01:02 03:04:06"), ("b", "2025:12:31 23:59:59")]:
            subprocess.run([SAMPLE, "still", "--size", "64", "--datetime", date, self.folder / f"{name}1.jpg",
                            self.folder / f"{name}2.jpg"], check=True)
        shots = server.shots()["shots"]
        self.assertEqual([(shot["id"], shot["date"]) for shot in shots],
                         [("b1.jpg", "2025:12:31 23:59:59"), ("still1.jpg", "2026:01:02 03:04:05"),
                          ("a1.jpg", "2026:01:02 03:04:06")])

    def test_half_a_picture_is_damaged(self):
        server = self.begin()
        whole = (SAMPLES / "still1.jpg").read_bytes()
        (self.folder / "torn.jpg").write_bytes(whole[:len(whole) // 2])
        (self.folder / "whole.jpg").write_bytes(whole)
        damaged = {}
        while not damaged.get("torn.jpg"):  # known once it has been decoded
            damaged = {shot["id"]: shot["damaged"] for shot in server.shots()["shots"]}
            self.assertEqual(server.ask("/api/thumbnail?file=torn.jpg")[0], 200)
            self.assertEqual(server.ask("/api/thumbnail?file=whole.jpg")[0], 200)
        self.assertFalse(damaged["whole.jpg"])

    def test_thumbnails_outlive_the_server(self):
        server = self.begin(PAIR)
        made = server.ask("/api/thumbnail?file=still1.jpg")[2]
        server.stop()
        marked = made + b"kept"
        for path in self.cache.rglob("*.jpg"):
            if path.read_bytes() == made:
                path.write_bytes(marked)
        server = self.begin(folder=self.folder, cache=self.cache)
        self.assertEqual(server.ask("/api/thumbnail?file=still1.jpg")[2], marked)
        server.stop()
        # What is kept may have been spoilt.
        for path in self.cache.rglob("*.json"):
            note = json.loads(path.read_text())
            path.write_text(json.dumps({**note, "reply": 5}))
        server = self.begin(folder=self.folder, cache=self.cache)
        self.assertEqual(len(server.shots()["shots"]), 1)
        self.assertEqual(server.ask("/api/thumbnail?file=still1.jpg")[2], made)

    def test_a_thumbnail_is_never_half_of_one(self):
        server = self.begin()
        answers = []
        for name in ["a.jpg", "b.jpg", "c.jpg"]:
            shutil.copy(SAMPLES / "still1.jpg", self.folder / name)
            with concurrent.futures.ThreadPoolExecutor(24) as many:
                answers += many.map(lambda path: server.ask(path)[2], [f"/api/thumbnail?file={name}"] * 24)
        self.assertEqual({(len(answer), answer[-2:]) for answer in answers}, {(len(answers[0]), b"\xff\xd9")})

    def test_thumbnails_are_kept(self):
        server = self.begin(PAIR)
        status, headers, first = server.ask("/api/thumbnail?file=still1.jpg")
        self.assertEqual((status, headers["Content-Type"], first[:2]), (200, "image/jpeg", b"\xff\xd8"))
        self.assertEqual(server.ask("/api/thumbnail?file=still1.jpg", If_None_Match=headers["ETag"])[0], 304)
        shutil.copy(SAMPLES / "turned1.jpg", self.folder / "still1.jpg")
        status, _, second = server.ask("/api/thumbnail?file=still1.jpg", If_None_Match=headers["ETag"])
        self.assertEqual(status, 200)
        self.assertNotEqual(first, second)

    def test_preview_is_what_the_command_makes(self):
        server = self.begin(PAIR)
        options = {"yaw": "20", "pitch": "-7.5", "roll": "3", "turn2": "1", "gain1": "1.2,1,1", "feather": "3"}
        query = "&".join(f"{name}={value}" for name, value in options.items())
        status, headers, data = server.ask(f"/api/preview?shot=still1.jpg&{query}")
        self.assertEqual((status, headers["Content-Type"]), (200, "image/jpeg"))
        made = self.folder.parent / "made.jpg"
        words = [word for name, value in options.items() for word in (f"--{name}", value)]
        subprocess.run([COMMAND, "export", "-q", "--preview", *words, *(self.folder / name for name in PAIR), made],
                       check=True)
        self.assertEqual(data, made.read_bytes())

    def test_preview_is_of_the_time_asked_for(self):
        server = self.begin(MOVIE)
        made = self.folder.parent / "made.jpg"
        previews = []
        for start in ["0", "0.5"]:
            previews.append(server.ask(f"/api/preview?shot=movie1.mov&start={start}")[2])
            subprocess.run([COMMAND, "export", "-q", "-f", "--preview", "--start", start,
                            *(self.folder / name for name in MOVIE), made], check=True)
            self.assertEqual(previews[-1], made.read_bytes(), start)
        self.assertTrue(previews[0] != previews[1])

    def test_a_replaced_lens_gives_a_new_preview(self):
        server = self.begin(PAIR)
        before = server.ask("/api/preview?shot=still1.jpg")[2]
        self.assertEqual(server.ask("/api/preview?shot=still1.jpg")[2], before)
        shutil.copy(SAMPLES / "different2.jpg", self.folder / "still2.jpg")
        status, _, after = server.ask("/api/preview?shot=still1.jpg")
        self.assertEqual(status, 200)
        self.assertTrue(before != after)

    def test_the_smallest_preview_is_a_picture(self):
        server = self.begin(PAIR)
        status, _, data = server.ask("/api/preview?shot=still1.jpg&width=1")
        frame = data.index(b"\xff\xc0")  # its header: length, precision, height, width
        self.assertEqual((status, data[frame + 5:frame + 9]), (200, b"\0\2\0\4"))

    def test_band_is_a_picture_of_the_folder(self):
        server = self.begin(PAIR)
        for name, size in [("strip.png", "400x20"), ("high.png", "400x300")]:
            subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"color=red:s={size}", "-frames:v", "1",
                            "-pix_fmt", "rgb24", self.folder / name], check=True)
        shutil.copy(self.folder / "strip.png", self.folder.parent / "outside.png")
        self.assertEqual(server.shots()["strips"], ["high.png", "strip.png"])
        plain = server.ask("/api/preview?shot=still1.jpg")[2]
        status, _, with_band = server.ask("/api/preview?shot=still1.jpg&band=strip.png")
        self.assertEqual(status, 200)
        self.assertNotEqual(plain, with_band)
        self.assertEqual(server.ask("/api/preview?shot=still1.jpg&band=..%2Foutside.png")[0], 404)
        status, _, data = server.ask("/api/preview?shot=still1.jpg&band=high.png")
        self.assertEqual(status, 422)
        self.assertIn("high.png: would cover the whole panorama", json.loads(data)["error"])
        placed = server.json("/api/exports", "POST", {"shot": "still1.jpg", "adjustments": {"band": "strip.png"}})
        self.assertEqual(server.events(placed["id"])[-1]["state"], "finished")

    def test_values_that_make_no_sense_are_told(self):
        server = self.begin(PAIR)
        for query, word in [("yaw=x", "yaw"), ("yaw=361", "yaw"), ("gain1=1,2", "gain1"), ("feather=9", "feather"),
                            ("width=x", "WIDTH"), ("start=-1", "start"), ("correct1=1,2,300", "correct1")]:
            status, _, data = server.ask(f"/api/preview?shot=still1.jpg&{query}")
            self.assertEqual(status, 400, query)
            self.assertIn(word, json.loads(data)["error"])

    def test_adjustments_outlive_the_server(self):
        server = self.begin(PAIR)
        kept = {"yaw": "10", "gain2": "0.9,1,1"}
        self.assertEqual(server.json("/api/adjustments", "PUT", {"shot": "still1.jpg", "adjustments": kept}),
                         {"adjustments": kept})
        self.assertEqual(server.stop(), 0)
        other = self.begin(folder=self.folder)
        self.assertEqual(other.shots()["shots"][0]["adjustments"], kept)
        files = sorted(path.name for path in self.folder.rglob("*"))
        self.assertEqual(files, sorted([".nq360", "still1.jpg.json", *PAIR]))
        for wrong in [{"yaw": "x"}, {"size": "2x1"}, {"yaw": [1]}, {"cancel": "1"}]:
            self.assertEqual(other.ask("/api/adjustments", "PUT", {"shot": "still1.jpg", "adjustments": wrong})[0], 400)

    def test_what_is_no_setting_is_told(self):
        server = self.begin(PAIR)
        for path, order in [("/api/match", {"adjustments": 5}), ("/api/match", {"adjustments": {"size": "2x1"}}),
                            ("/api/exports", {"adjustments": {"quality": "5"}}),
                            ("/api/exports", {"settings": {"yaw": "5"}}), ("/api/exports", {"settings": "web"})]:
            self.assertEqual(server.ask(path, "POST", {"shot": "still1.jpg", **order})[0], 400, order)
        self.assertEqual(server.json("/api/exports"), {"exports": []})

    def test_no_order_leads_out_of_the_folder(self):
        server = self.begin(MOVIE)
        shutil.copy(SAMPLES / "movie1.mov", self.folder.parent / "secret.mov")
        files = [sorted(os.listdir(folder)) for folder in (self.folder, self.folder.parent)]
        for way in ["../secret.mov", str(self.folder.parent / "secret.mov"), "..\\secret.mov", "", ".", "movie1.mov/."]:
            for path, method, order in [("/api/adjustments", "PUT", {"shot": way, "adjustments": {"yaw": "1"}}),
                                        ("/api/exports", "POST", {"kind": "sound", "file": way}),
                                        ("/api/exports", "POST", {"shot": way}), ("/api/match", "POST", {"shot": way})]:
                self.assertEqual(server.ask(path, method, order)[0], 404, (path, order))
        self.assertEqual([sorted(os.listdir(folder)) for folder in (self.folder, self.folder.parent)], files)

    def test_match_finds_the_turn(self):
        server = self.begin(["different1.jpg", "different2.jpg"])
        found = server.json("/api/match", "POST", {"shot": "different1.jpg", "adjustments": {"yaw": "5"}})
        self.assertEqual(found["adjustments"]["yaw"], "5")
        self.assertEqual(found["warning"], "")
        self.assertTrue({"gain2", "correct1", "correct2"} & set(found["adjustments"]))


class Exports(ServerTest):
    def order(self, server, **order):
        return server.json("/api/exports", "POST", order)

    def test_is_the_file_that_the_command_makes(self):
        server = self.begin([*PAIR, *MOVIE])
        orders = [("still1.jpg", {"yaw": "10"}, {"quality": 80, "size": "1440x720"}, PAIR, ["--quality", "80"], "jpg"),
                  ("movie1.mov", {}, {"size": "1440x720", "web": True, "aac": True, "start": "0:00.5", "sound": "2"},
                   MOVIE, ["--web", "--aac", "--start", "0.5", "--sound", "2"], "mov")]
        for shot, look, settings, names, words, extension in orders:
            placed = self.order(server, shot=shot, adjustments=look, settings=settings)
            self.assertEqual(placed["name"], f"{shot.split('.')[0]}-360.{extension}")
            events = server.events(placed["id"])
            self.assertEqual(events[-1]["state"], "finished", events[-1])
            made = self.folder.parent / f"made.{extension}"
            turns = [word for name, value in look.items() for word in (f"--{name}", value)]
            subprocess.run([COMMAND, "export", "-q", "--size", "1440x720", *words, *turns,
                            *(self.folder / name for name in names), made], check=True)
            self.assertEqual((self.folder / placed["name"]).read_bytes(), made.read_bytes())
        counts = [event["frame_count"] for event in events if event["state"] == "progress"]
        self.assertTrue(counts and counts == sorted(counts) and counts[-1] <= events[-2]["frames"], events)
        # Nothing is ever replaced.
        again = self.order(server, shot="still1.jpg")
        self.assertEqual(again["name"], "still1-360-2.jpg")
        self.assertEqual(server.events(again["id"])[-1]["state"], "finished")

    def test_each_setting_is_the_commands_option(self):
        server = self.begin(MOVIE)
        made = self.folder.parent / "made.mov"
        files = []
        for settings, words in [({"end": "0.2"}, ["--end", "0.2"]),
                                ({"end": "0.2", "sound": "none"}, ["--end", "0.2", "--sound", "none"]),
                                ({"end": "0.2", "bit-rate": "200k"}, ["--end", "0.2", "--bit-rate", "200k"])]:
            placed = self.order(server, shot="movie1.mov", settings={"size": "1440x720", **settings})
            self.assertEqual(server.events(placed["id"])[-1]["state"], "finished")
            subprocess.run([COMMAND, "export", "-q", "-f", "--size", "1440x720", *words,
                            *(self.folder / name for name in MOVIE), made], check=True)
            files.append((self.folder / placed["name"]).read_bytes())
            self.assertEqual(files[-1], made.read_bytes(), settings)
        self.assertEqual(len(set(files)), 3)

    def test_partial_takes_what_there_is(self):
        server = self.begin(PAIR)
        with open(self.folder / "still2.jpg", "r+b") as torn:
            torn.truncate((self.folder / "still2.jpg").stat().st_size // 2)
        events = [server.events(self.order(server, shot="still1.jpg", settings=settings)["id"])[-1]
                  for settings in [{}, {"partial": True}]]
        self.assertEqual([event["state"] for event in events], ["failed", "finished"])
        for event in events:
            self.assertIn("still2.jpg", event["message"])

    def test_a_name_that_is_taken_meanwhile_stays_whose_it_is(self):
        server = self.begin(MOVIE)
        first = self.order(server, shot="movie1.mov")
        second = self.order(server, kind="sound", file="movie1.mov")
        (self.folder / second["name"]).write_bytes(b"mine")
        (self.folder / first["name"]).write_bytes(b"mine")
        ends = [server.events(order["id"])[-1] for order in (first, second)]
        self.assertEqual([(end["state"], end["name"]) for end in ends],
                         [("finished", "movie1-360-2.mov"), ("finished", "movie1-2.wav")])
        for order, end in zip((first, second), ends):
            self.assertEqual((self.folder / order["name"]).read_bytes(), b"mine")
            self.assertGreater((self.folder / end["name"]).stat().st_size, 1000)
        self.assertEqual(len(os.listdir(self.folder)), 6)

    def test_one_that_runs_is_cancelled(self):
        server = self.begin(MOVIE)
        number = self.order(server, shot="movie1.mov", settings={"size": "3840x1920"})["id"]
        states = []
        for event in server.watch(number):
            states.append(event["state"])
            if event["state"] == "progress" and states.count("progress") == 1:
                self.assertEqual(server.ask(f"/api/exports/{number}", "DELETE")[0], 204)
        self.assertIn("progress", states)
        self.assertEqual(states[-1], "cancelled")
        self.assertEqual(sorted(os.listdir(self.folder)), MOVIE)

    def test_sound_of_a_movie(self):
        server = self.begin(MOVIE, "--to", str(temporary_folder(self)))
        placed = self.order(server, kind="sound", file="movie1.mov")
        self.assertEqual(server.events(placed["id"])[-1]["state"], "finished")
        status, headers, data = server.ask("/files/movie1.wav")
        self.assertEqual((status, headers["Content-Type"], data[:4]), (200, "audio/wav", b"RIFF"))
        self.assertFalse((self.folder / "movie1.wav").exists())

    def test_failures_come_in_the_commands_words(self):
        server = self.begin(MOVIE)
        (self.folder / "movie2.mov").write_bytes((SAMPLES / "movie2.mov").read_bytes()[:200000])
        shutil.copy(SAMPLES / "still1.jpg", self.folder / "other.jpg")
        self.assertEqual(server.ask("/api/exports", "POST", {"shot": "movie1.mov"})[0], 404)
        shutil.copy(SAMPLES / "movie2.mov", self.folder)
        server.shots()
        placed = self.order(server, shot="movie1.mov", settings={"size": "20x10"})
        last = server.events(placed["id"])[-1]
        self.assertEqual(last["state"], "failed")
        self.assertTrue(last["message"].startswith(placed["name"] + ": "), last)
        silent = self.order(server, kind="sound", file="other.jpg")
        self.assertIn("has no sound", server.events(silent["id"])[-1]["message"])
        for wrong in [{"size": "x"}, {"quality": 101}, {"start": "5", "end": "4"}, {"web": "yes"}]:
            self.assertEqual(server.ask("/api/exports", "POST", {"shot": "movie1.mov", "settings": wrong})[0], 400)

    def test_cancelled_ones_leave_nothing(self):
        server = self.begin(MOVIE)
        numbers = [self.order(server, shot="movie1.mov")["id"] for _ in range(3)]
        for number in reversed(numbers):
            self.assertEqual(server.ask(f"/api/exports/{number}", "DELETE")[0], 204)
        for number in numbers:
            self.assertEqual(server.events(number)[-1]["state"], "cancelled")
        self.assertEqual(server.ask("/api/exports/99", "DELETE")[0], 404)
        self.assertEqual(sorted(os.listdir(self.folder)), MOVIE)

    def test_line_is_bounded(self):
        server = self.begin(MOVIE)
        statuses = [server.ask("/api/exports", "POST", {"shot": "movie1.mov"})[0] for _ in range(30)]
        self.assertIn(201, statuses)
        self.assertEqual(statuses[-1], 429)
        names = [one["name"] for one in server.json("/api/exports")["exports"]]
        self.assertEqual(len(names), len(set(names)))
        self.assertEqual(server.stop(), 0)
        self.assertEqual([name for name in os.listdir(self.folder) if name.startswith(".")], [])

    def begun_export(self, server):
        placed = self.order(server, shot="movie1.mov", settings={"size": "2880x1440"})
        while not any(name.startswith(".nq360-") for name in os.listdir(self.folder)):
            time.sleep(0.01)
        return placed["name"]

    def test_interrupt_leaves_no_half_file(self):
        for number in [signal.SIGINT, signal.SIGTERM]:
            server = self.begin(MOVIE)
            self.begun_export(server)
            self.assertEqual(server.stop(number), 0)
            self.assertEqual(sorted(os.listdir(self.folder)), MOVIE)

    def test_interrupted_twice_leaves_no_half_file(self):
        server = self.begin(MOVIE)
        number = self.order(server, shot="movie1.mov", settings={"size": "3840x1920"})["id"]
        next(event for event in server.watch(number) if event["state"] in ("started", "progress"))
        server.process.send_signal(signal.SIGINT)
        told = b""
        while b"stopping once" not in told:
            told += server.process.stderr.read1() or self.fail(told)
        self.assertIn(server.stop(), (0, -signal.SIGINT))
        self.assertEqual(sorted(os.listdir(self.folder)), MOVIE)

    def test_interrupt_ends_what_is_being_watched(self):
        server = self.begin(MOVIE)
        number = self.order(server, shot="movie1.mov", settings={"size": "3840x1920"})["id"]
        watched = server.watch(number)
        next(event for event in watched if event["state"] in ("started", "progress"))
        self.assertEqual(server.stop(), 0)
        try:
            self.assertNotIn("finished", [event["state"] for event in watched])
        except http.client.IncompleteRead:
            pass
        self.assertEqual(sorted(os.listdir(self.folder)), MOVIE)

    def test_killed_leaves_no_half_file_under_its_name(self):
        server = self.begin(MOVIE)
        kept = {"yaw": "10"}
        server.json("/api/adjustments", "PUT", {"shot": "movie1.mov", "adjustments": kept})
        name = self.begun_export(server)
        server.stop(signal.SIGKILL)
        self.assertNotIn(name, os.listdir(self.folder))
        self.assertEqual(self.begin(folder=self.folder).shots()["shots"][0]["adjustments"], kept)

    def test_killed_while_saving_leaves_adjustments_whole(self):
        server = self.begin(PAIR)
        looks = [{"yaw": "10", "gain1": "1.25,1,1"}, {"roll": "-5"}]
        begun = threading.Event()

        def save():
            for look in itertools.cycle(looks):
                try:
                    server.json("/api/adjustments", "PUT", {"shot": "still1.jpg", "adjustments": look})
                except (OSError, http.client.HTTPException):
                    return
                begun.set()

        savers = [threading.Thread(target=save) for _ in range(4)]
        for saver in savers:
            saver.start()
        begun.wait()
        server.stop(signal.SIGKILL)
        for saver in savers:
            saver.join()
        kept = json.loads((self.folder / ".nq360" / "still1.jpg.json").read_text())
        self.assertIn(kept, looks)
        self.assertEqual(self.begin(folder=self.folder).shots()["shots"][0]["adjustments"], kept)

    def test_read_only_writes_nothing(self):
        server = self.begin(PAIR, "--read-only")
        self.assertEqual(server.ask("/api/exports", "POST", {"shot": "still1.jpg"})[0], 403)
        kept = {"shot": "still1.jpg", "adjustments": {"yaw": 1}}
        self.assertEqual(server.ask("/api/adjustments", "PUT", kept)[0], 422)
        self.assertEqual(sorted(os.listdir(self.folder)), PAIR)

    def test_space_tells_what_an_export_needs(self):
        server = self.begin(PAIR)
        space = server.json("/api/space?shot=still1.jpg")
        inputs = sum((self.folder / name).stat().st_size for name in PAIR)
        self.assertEqual(space["needed"], inputs + (50 << 20))
        self.assertGreater(space["free"], 0)


class WhatItStands(ServerTest):
    def test_what_cannot_be_read_is_refused(self):
        server = self.begin()
        post = "POST /api/match HTTP/1.1"
        for data, status in [(b"\r\n\r\n", 400), (b"\0" * 100 + b"\r\n\r\n", 400), (b"GET\r\n\r\n", 400),
                             (b"GET / HTTP/9\r\n\r\n", 400), (b"GET http://x/ HTTP/1.1\r\n\r\n", 400),
                             (request(server, more="Broken\r\n"), 400), (b"A" * 5000, 414),
                             (request(server, more="X: " + "y" * 9000 + "\r\n"), 431),
                             (request(server, post, more="Content-Length: 99999999\r\n"), 413),
                             (request(server, post, more="Content-Length: -1\r\n"), 400),
                             (request(server, post, more="Transfer-Encoding: chunked\r\n"), 501),
                             (request(server, "BREW / HTTP/1.1"), 400)]:
            with self.subTest(data=data[:60]):
                self.assertEqual(server.raw_status(data), status)
        json_type = "Content-Type: application/json\r\n"
        for body in ["", "[]", "{", "null", '"x"', "{}" * 2, "[" * 30000, '{"shot":' * 5000]:
            more = f"{json_type}Content-Length: {len(body)}\r\n"
            self.assertIn(server.raw_status(request(server, post, more=more) + body.encode()), (400, 404), body[:20])
        more = "Content-Type: text/plain\r\nContent-Length: 2\r\n"
        self.assertEqual(server.raw_status(request(server, post, more=more) + b"{}"), 415)
        self.assert_answered(server)

    def test_slow_clients_hold_nobody_up(self):
        server = self.begin(PAIR)
        slow = []
        try:
            for i in range(1000):
                connection = socket.create_connection(("127.0.0.1", server.port), timeout=60)
                slow.append(connection)
                connection.send(b"G")
                if i % 100 == 99:
                    self.assertEqual(len(server.shots()["shots"]), 1)
            for byte in b"ET /":
                for connection in slow:
                    try:
                        connection.send(bytes([byte]))
                    except OSError:
                        pass  # shown out
                self.assertEqual(server.ask("/files/still1.jpg")[0], 200)
                time.sleep(1)
        finally:
            for connection in slow:
                connection.close()
        self.assert_answered(server)

    def test_who_has_waited_longest_goes_when_there_are_too_many(self):
        server = self.begin()
        waiting = [socket.create_connection(("127.0.0.1", server.port), timeout=PATIENCE) for _ in range(257)]
        self.assertEqual(waiting[0].recv(1), b"")
        for connection in (waiting[1], waiting[-1]):
            connection.sendall(request(server))
            self.assertEqual(connection.recv(12), b"HTTP/1.1 200")
        for connection in waiting:
            connection.close()

    def test_watchers_leave_room_for_others(self):
        server = self.begin(MOVIE)
        for _ in range(3):
            order = server.json("/api/exports", "POST", {"shot": "movie1.mov", "settings": {"size": "3840x1920"}})
        watchers = [ask_and_wait(server, f"GET /api/exports/{order['id']} HTTP/1.1") for _ in range(20)]
        statuses = [int(connection.recv(12).split()[1]) for connection in watchers]
        self.assertEqual((statuses.count(200), statuses.count(429)), (12, 8))
        self.assert_answered(server)
        for connection in watchers:
            connection.close()

    def ask_for_long_file(self, server, count):
        """Connections that have asked for a file of 4 GiB and read nothing of it."""
        with open(self.folder / "long.mov", "wb") as file:
            file.truncate(4 << 30)
        return [ask_and_wait(server, "GET /files/long.mov HTTP/1.1") for _ in range(count)]

    def test_clients_that_read_nothing_hold_nobody_up(self):
        server = self.begin()
        lazy = self.ask_for_long_file(server, 10)
        self.assert_answered(server)
        for connection in lazy:
            connection.close()
        self.assert_answered(server)
        self.assertEqual(server.stop(), 0)

    def test_clients_that_read_slowly_hold_up_no_end(self):
        server = self.begin()
        with self.ask_for_long_file(server, 1)[0] as slow:
            self.assertIn(b" 200 ", slow.recv(100))
            server.process.send_signal(signal.SIGINT)
            deadline = time.monotonic() + PATIENCE
            while server.process.poll() is None and time.monotonic() < deadline:
                slow.recv(4096)
                time.sleep(0.01)
        self.assertEqual(server.process.poll(), 0)

    def test_files_that_are_not_taken_leave_room_for_others(self):
        server = self.begin()
        lazy = self.ask_for_long_file(server, 40)
        self.assert_answered(server)
        statuses = [int(connection.recv(12).split()[1]) for connection in lazy]
        self.assertEqual((statuses.count(200), statuses.count(503)), (12, 28))
        for connection in lazy:
            connection.close()
        # Whoever lets go makes room.
        (self.folder / "short.mov").write_bytes(b"x")
        while server.ask("/files/short.mov")[0] == 503:
            time.sleep(0.01)
        self.assertEqual(server.ask("/files/short.mov")[2], b"x")

    def test_folder_that_is_none_is_told(self):
        base = temporary_folder(self)
        command = installed_command(base)
        for words in [[str(base / "none")], [command], [str(base), "--to", str(base / "none")]]:
            ended = subprocess.run([command, "view", "--no-browser", *words], capture_output=True, text=True,
                                   check=False)
            self.assertEqual(ended.returncode, 1, words)
            self.assertIn("is no folder", ended.stderr)

    def test_missing_page_is_told(self):
        base = temporary_folder(self)
        command = installed_command(base)
        shutil.rmtree(base / "share")
        ended = subprocess.run([command, "view", str(base)], capture_output=True, text=True, check=False)
        self.assertEqual(ended.returncode, 1)
        self.assertIn("the page is not installed", ended.stderr)


class HowItBegins(unittest.TestCase):
    def setUp(self):
        self.base = temporary_folder(self)
        self.command = installed_command(self.base)
        self.noted = self.base / "noted"
        programs = self.base / "programs"
        programs.mkdir()
        browser = programs / "xdg-open"
        browser.write_text(f'#!/bin/sh\necho "$$ $1" > "{self.noted}.part"\nmv "{self.noted}.part" "{self.noted}"\n'
                           "exec sleep 600\n")
        browser.chmod(0o755)
        self.folder = self.base / "shots"
        self.folder.mkdir()
        self.surroundings = {"cache": self.base / "cache", "path": programs}

    def begin(self, *words, **more):
        server = Server(self.command, *words, **self.surroundings, **more)
        self.addCleanup(server.stop, signal.SIGKILL)
        return server

    def test_the_browser_is_opened_and_left_alone(self):
        server = self.begin(self.folder)
        while not self.noted.exists():
            time.sleep(0.01)
        number, address = self.noted.read_text().split()
        browser = int(number)
        self.assertEqual(address, server.address)
        self.assertNotEqual(os.getsid(browser), os.getsid(server.process.pid))
        for stream in range(3):
            self.assertEqual(os.readlink(f"/proc/{browser}/fd/{stream}"), os.devnull)
        ignored = re.search("SigIgn:\\s*(.*)", Path(f"/proc/{browser}/status").read_text())[1]
        self.assertEqual(int(ignored, 16) & 0x7FFFFFFF, 0)  # beyond are those of the C library's own
        os.kill(browser, signal.SIGKILL)
        while Path(f"/proc/{browser}").exists():  # as long as nobody has taken note of its end
            time.sleep(0.01)
        self.assertEqual(server.stop(), 0)

    def test_no_browser_is_opened_unless_wanted(self):
        server = self.begin(self.folder, "--no-browser")
        self.assertEqual(server.ask("/")[0], 200)
        self.assertEqual(server.stop(), 0)
        self.assertFalse(self.noted.exists())

    def test_this_folder_is_shown_where_none_is_named(self):
        for name in PAIR:
            shutil.copy(SAMPLES / name, self.folder)
        server = self.begin("--no-browser", cwd=self.folder)
        listing = server.shots()
        self.assertEqual((listing["folder"], listing["made"]), (str(self.folder), str(self.folder)))
        self.assertEqual([shot["id"] for shot in listing["shots"]], ["still1.jpg"])


if __name__ == "__main__":
    signal.signal(signal.SIGINT, signal.default_int_handler)
    unittest.main()
