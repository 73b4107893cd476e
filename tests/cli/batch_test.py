"""Whole folders: what is planned, made, left as it is, and what an end at any moment leaves."""
import collections
import json
import os
import random
import re
import shutil
import signal
import subprocess
import tempfile
import time

from command import COMMAND, SAMPLE, CommandTest, Terminal, main, run, sample

SMALL = ["--size", "320x160"]
DATE = b"2026:01:02 03:04:05"
FRAMES = 30  # of the sample movie


def copy(source, path, date=DATE):
    """A file of the camera, as if taken at another time."""
    with open(source, "rb") as file:
        data = file.read()
    assert DATE in data
    with open(path, "wb") as file:
        file.write(data.replace(DATE, date))


def date(number):
    return b"2026:01:%02d %02d:04:05" % (number // 24 + 1, number % 24)


def put_shot(folder, stem, kind="still", when=DATE):
    extension = "jpg" if kind == "still" else "mov"
    for lens in (1, 2):
        copy(sample(f"{kind}{lens}.{extension}"), os.path.join(folder, f"{stem}_{lens}.{extension}"), when)


def events(folder="out"):
    """The lines of the journal; what a kill has torn is none."""
    lines = []
    with open(os.path.join(folder, ".nq360", "journal.jsonl"), encoding="utf-8") as file:
        for line in file:
            try:
                lines.append(json.loads(line))
            except ValueError:
                pass
    return lines


def count_of(event, folder="out"):
    return collections.Counter(str(line["output"]) for line in events(folder) if line["event"] == event)


def files_in(folder):
    """All files, without the folder's own notes."""
    found = set()
    for place, folders, names in os.walk(folder):
        if ".nq360" in folders:
            folders.remove(".nq360")
        found |= {os.path.relpath(os.path.join(place, name), folder) for name in names}
    return found


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def exported(lens1, lens2, *options):
    """What `nq360 export` makes of them."""
    name = "single" + (".jpg" if lens1.endswith("jpg") else ".mov")
    result = run("export", lens1, lens2, name, "-f", *options)
    assert result.returncode == 0, result.stderr
    return contents(name)


class Card(CommandTest):
    """A card of 300 shots: 10 of them broken, 5 without a second half, 2 ambiguous; 5 names as people give them."""

    @classmethod
    def setUpClass(cls):
        cls.place = tempfile.mkdtemp(prefix="nq360-card-")
        cls.addClassCleanup(shutil.rmtree, cls.place)
        lenses = [os.path.join(cls.place, f"lens{lens}.jpg") for lens in (1, 2)]
        subprocess.run([SAMPLE, "still", *lenses, "--size", "1440", "--quality", "31"], check=True)
        cls.card = os.path.join(cls.place, "card")
        os.mkdir(cls.card)
        cls.whole = {}
        for number in range(300 - 10 - 5 - 2):
            cls.add(number, lenses)
        for number in range(10):
            cls.add_broken(number, lenses)
        for number in range(5):
            copy(lenses[number % 2], os.path.join(cls.card, f"LONE{number}_{number % 2 + 1}.jpg"), date(300 + number))
        for number in range(2):
            for name in ("1_1", "1_2", "2_1"):
                copy(lenses[0], os.path.join(cls.card, f"TWICE{number}_{name}.jpg"), date(310 + number))

    @classmethod
    def add(cls, number, lenses):
        names = [b"with  blanks", b"caf\xe9", "Mond \N{full moon symbol}".encode(), b"50% [a]", b"-x"]
        stem = names[number] if number < len(names) else b"IMG%04d" % number
        kind = "jpg"
        if number in (10, 20, 30):
            kind, lenses = "mov", [sample("movie1.mov"), sample("movie2.mov")]
        halves = []
        for lens in (1, 2):
            path = os.path.join(os.fsencode(cls.card), stem + b"_%d." % lens + kind.encode())
            copy(lenses[lens - 1], path, date(number // 2))  # two shots have one date: their names decide
            halves.append(os.fsdecode(path))
        cls.whole[os.fsdecode(stem) + "_1-360." + kind] = halves

    @classmethod
    def add_broken(cls, number, lenses):
        """Cut short, which the export notices, or empty, which the plan does."""
        for lens in (1, 2):
            path = os.path.join(cls.card, f"BROKEN{number}_{lens}.jpg")
            copy(lenses[lens - 1], path, date(280 + number))
            if lens == number % 2 + 1:
                os.truncate(path, 0 if number >= 6 else os.path.getsize(path) * 6 // 10)

    def test_plan(self):
        result = run("batch", self.card, "--to", "out", "--dry-run", "--json", *SMALL)
        self.assert_done(result)
        self.assertEqual(os.listdir("."), [])
        lines = [json.loads(line) for line in result.stdout.splitlines()]
        shots = [line for line in lines if "output" in line]
        left_out = [line for line in lines if "left_out" in line]
        self.assertEqual((len(shots), len(left_out)), (283 + 6, 4 + 4 + 5 + 2 * 3))
        self.assertEqual(sum(line["damaged"] for line in left_out), 4)
        reasons = collections.Counter(line["why"].rsplit(": ", 1)[1] for line in left_out if not line["damaged"])
        self.assertEqual(reasons, {"no second half is there": 9, "more than one file could be its second half": 6})
        names = {line["output"] if isinstance(line["output"], str) else line["output"]["percent"] for line in shots}
        self.assertLessEqual({"with  blanks_1-360.jpg", "caf%E9_1-360.jpg", "Mond \N{full moon symbol}_1-360.jpg",
                              "50% [a]_1-360.jpg", "-x_1-360.jpg", "IMG0010_1-360.mov"}, names)
        movie = next(line for line in shots if line["output"] == "IMG0010_1-360.mov")
        self.assertEqual((movie["frames"], movie["width"], movie["height"]), (FRAMES, 320, 160))
        self.assertTrue(movie["lens1"].endswith("/IMG0010_1.mov") and movie["lens2"].endswith("/IMG0010_2.mov"))
        # The table has the same.
        table = run("batch", self.card, "--to", "out", "--dry-run", *SMALL).stdout.decode()
        self.assertEqual((table.count("to make"), table.count("left out: ")), (289, 19))

    def test_killed_at_any_moment_and_begun_again(self):
        seed = random.randrange(10**6)
        moments = random.Random(seed)
        command = [COMMAND, "batch", self.card, "--to", "out", *SMALL]
        for _ in range(20):
            process = subprocess.Popen(command, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            try:
                process.wait(moments.uniform(0.1, 1.6))
            except subprocess.TimeoutExpired:
                process.kill()
                process.wait()
            self.assert_only_whole_files(seed)
        last = run(*command[1:])
        self.assertEqual(last.returncode, 1, last.stderr)  # the broken ones
        self.assertRegex(last.stderr.decode().splitlines()[-1], r"^\d+ made, \d+ left as they were, 6 failed$")
        self.assert_all_made(seed)
        again = run(*command[1:])
        self.assertIn(b"\n0 made, 283 left as they were, 6 failed\n", again.stderr)
        self.assert_all_made(seed)

    def assert_only_whole_files(self, seed):
        self.assertLessEqual(files_in("out") if os.path.exists("out") else set(), set(self.whole), seed)

    def assert_all_made(self, seed):
        self.assertEqual(files_in("out"), set(self.whole), seed)
        self.assertEqual(os.listdir("out/.nq360"), ["journal.jsonl"], seed)
        self.assertEqual(set(count_of("done").values()), {1}, seed)
        self.assertEqual(len(count_of("done")), 283, seed)
        for output in random.Random(seed).sample(sorted(self.whole), 15) + ["IMG0010_1-360.mov"]:
            self.assertEqual(contents("out/" + output), exported(*self.whole[output], *SMALL), (seed, output))


class Batch(CommandTest):
    def setUp(self):
        super().setUp()
        os.mkdir("card")

    def batch(self, *options, status=0, folders=("card",)):
        result = run("batch", *folders, "--to", "out", *SMALL, *options)
        self.assertEqual(result.returncode, status, result.stderr)
        return result.stderr.decode() + result.stdout.decode()

    def start(self, *options):
        process = subprocess.Popen([COMMAND, "batch", "card", "--to", "out", *options], stdout=subprocess.PIPE,
                                   stderr=subprocess.STDOUT)
        self.addCleanup(process.stdout.close)
        self.addCleanup(process.wait)
        self.addCleanup(process.kill)
        return process

    def wait_until(self, condition, failure):
        for _ in range(6000):
            if condition():
                return
            time.sleep(0.01)
        self.fail(failure)

    def wait_for_event(self, event, output):
        self.wait_until(lambda: os.path.exists("out/.nq360/journal.jsonl") and output in count_of(event),
                        f"{output} was never {event}")

    def wait_for_movie_file(self):
        """Until a movie is being written, or has been."""
        self.wait_until(lambda: any(name.endswith(".mov") for _, _, names in os.walk("out") for name in names),
                        "no movie was begun")

    def test_changed_inputs_and_options_are_made_anew_alone(self):
        for stem in ("sun", "moon", "star"):
            put_shot("card", stem)
        self.assertIn("3 made, 0 left as they were, 0 failed", self.batch())
        self.assertIn("0 made, 3 left as they were, 0 failed", self.batch("--jobs", "1"))
        copy(sample("different1.jpg"), "card/moon_1.jpg")
        self.assertIn("1 made, 2 left as they were, 0 failed", self.batch())
        self.assertEqual(count_of("done"), {"sun_1-360.jpg": 1, "moon_1-360.jpg": 2, "star_1-360.jpg": 1})
        self.assertEqual(contents("out/moon_1-360.jpg"), exported("card/moon_1.jpg", "card/moon_2.jpg", *SMALL))
        os.remove("out/star_1-360.jpg")
        self.assertIn("1 made, 2 left as they were, 0 failed", self.batch())
        self.assertIn("3 made, 0 left as they were, 0 failed", self.batch("--tilt", "10"))
        single = exported("card/sun_1.jpg", "card/sun_2.jpg", *SMALL, "--tilt", "10")
        self.assertEqual(contents("out/sun_1-360.jpg"), single)

    def test_a_changed_band_is_an_option_changed(self):
        put_shot("card", "a")
        for gray in ("gray", "white"):
            subprocess.run(["ffmpeg", "-v", "error", "-y", "-f", "lavfi", "-i", f"color={gray}:s=320x8", "-frames:v",
                            "1", "band.png"], check=True)
            self.assertIn("1 made", self.batch("--band", "band.png"))
        self.assertEqual(contents("out/a_1-360.jpg"),
                         exported("card/a_1.jpg", "card/a_2.jpg", *SMALL, "--band", "band.png"))
        self.assertIn("0 made, 1 left", self.batch("--band", "./band.png"))

    def test_matches_each_shot(self):
        put_shot("card", "plain")
        for lens in (1, 2):
            copy(sample(f"different{lens}.jpg"), f"card/other_{lens}.jpg")
        self.assertIn("2 made", self.batch("--match"))
        for stem in ("plain", "other"):
            self.assertEqual(contents(f"out/{stem}_1-360.jpg"),
                             exported(f"card/{stem}_1.jpg", f"card/{stem}_2.jpg", *SMALL, "--match"))

    def test_files_of_others_stay(self):
        put_shot("card", "sun")
        put_shot("card", "moon")
        os.mkdir("out")
        with open("out/sun_1-360.jpg", "wb") as file:
            file.write(b"precious")
        told = self.batch(status=1)
        self.assertIn("out/sun_1-360.jpg: exists already and is not of this batch; --force replaces it", told)
        self.assertIn("1 made, 0 left as they were, 1 failed", told)
        self.assertEqual(contents("out/sun_1-360.jpg"), b"precious")
        self.assertIn("1 made, 1 left as they were, 0 failed", self.batch("--force"))
        # What somebody has worked on since is somebody's.
        with open("out/moon_1-360.jpg", "ab") as file:
            file.write(b"retouched")
        self.assertIn("0 made, 1 left as they were, 1 failed", self.batch("--tilt", "0", status=1))
        self.assertTrue(contents("out/moon_1-360.jpg").endswith(b"retouched"))

    def test_a_file_that_came_meanwhile_stays(self):
        put_shot("card", "sun", "movie")
        process = self.start(*SMALL)
        self.wait_for_event("begun", "sun_1-360.mov")
        with open("out/sun_1-360.mov", "wb") as file:
            file.write(b"precious")
        self.assertIn("out/sun_1-360.mov: exists already", process.communicate()[0].decode())
        self.assertEqual(contents("out/sun_1-360.mov"), b"precious")
        self.assertEqual(process.returncode, 1)

    def test_what_was_put_in_place_when_the_process_ended_is_not_made_again(self):
        put_shot("card", "sun")
        self.batch()
        journal = contents("out/.nq360/journal.jsonl").splitlines(keepends=True)
        with open("out/.nq360/journal.jsonl", "wb") as file:
            file.writelines(journal[:-1])
        self.assertEqual(count_of("done"), {})
        self.assertIn("0 made, 1 left as they were, 0 failed", self.batch())
        self.assertEqual((count_of("done"), count_of("begun")), ({"sun_1-360.jpg": 1}, {"sun_1-360.jpg": 1}))
        # The process may have ended before that too: then nothing stands there.
        with open("out/.nq360/journal.jsonl", "wb") as file:
            file.writelines(journal[:-1])
        os.remove("out/sun_1-360.jpg")
        self.assertIn("1 made, 0 left as they were, 0 failed", self.batch())

    def test_sub_folders_and_names_that_collide(self):
        os.makedirs("card/one/deep")
        os.mkdir("more")
        for folder in ("card", "card/one", "card/one/deep", "more"):
            put_shot(folder, "a")
        self.batch(folders=("card", "more"))
        self.assertEqual(files_in("out"), {"a_1-360.jpg", "a_1-360-2.jpg"})
        self.batch("-r", folders=("card", "more", "card/one"))
        self.assertEqual(files_in("out"), {"a_1-360.jpg", "one/a_1-360.jpg", "one/deep/a_1-360.jpg", "a_1-360-2.jpg"})

    def test_what_lies_in_the_output_folder_is_no_input(self):
        put_shot("card", "a")
        os.mkdir("card/out")
        put_shot("card/out", "b")
        result = run("batch", "card", "-r", "--to", "card/out", *SMALL)
        self.assertIn(b"1 made", result.stderr)
        self.assertIn("a_1-360.jpg", os.listdir("card/out"))
        self.assert_refused(run("batch", "card/out", "--to", "card", *SMALL), 2, "lies in the folder of --to")
        self.assert_refused(run("batch", "card", "--to", "card/../card", *SMALL), 2, "lies in the folder of --to")

    def test_names_as_a_person_gives_them(self):
        for lens, name in ((1, "x-first-A"), (2, "x-first-B")):
            copy(sample(f"still{lens}.jpg"), f"card/y.{name}.jpg")
        copy(sample("still1.jpg"), "card/odd.jpg")
        self.assertIn("1 made", self.batch("--pairs", "y.{shot}-{lens}"))
        self.assertEqual(files_in("out"), {"y.x-first-A-360.jpg"})
        self.assert_refused(run("batch", "card", "--to", "out", "--pairs", "{shot}"), 2, "{shot} and {lens} once each")

    def test_a_line_a_shot_where_nobody_looks(self):
        put_shot("card", "a")
        put_shot("card", "b", "movie")
        result = run("batch", "card", "--to", "out", *SMALL)
        lines = sorted(result.stdout.decode().splitlines())
        self.assertRegex(lines[0], r"^a_1-360\.jpg: 320x160, in [0-9.]+ s$")
        self.assertRegex(lines[1], r"^b_1-360\.mov: 320x160, 30 frames, in [0-9.]+ s$")
        self.assertEqual(result.stderr, b"2 made, 0 left as they were, 0 failed\n")
        os.remove("card/a_2.jpg")
        put_shot("card", "c")
        os.truncate("card/c_1.jpg", 100000)
        told = run("batch", "card", "--to", "out", "--json", *SMALL)
        self.assertEqual(told.returncode, 1)
        events_told = [json.loads(line) for line in told.stdout.splitlines()]
        self.assertEqual((events_told[0]["state"], events_told[0]["output"]), ("failed", "c_1-360.jpg"))
        self.assertEqual(events_told[1], {"made": 0, "left": 1, "failed": 1, "not_made": 0})
        quiet = run("batch", "card", "--to", "out", "--quiet", "--tilt", "1", *SMALL)
        self.assertEqual(quiet.stdout, b"")
        self.assertEqual(len(quiet.stderr.splitlines()), 1)  # the broken one

    def test_an_input_that_vanishes_is_one_failure(self):
        put_shot("card", "a", "movie")
        for number in range(3):
            put_shot("card", f"IMG{100 + number}")
        process = self.start("--jobs", "1")
        self.wait_for_event("begun", "a_1-360.mov")
        os.remove("card/IMG101_2.jpg")
        output = process.communicate()[0].decode()
        self.assertEqual(process.returncode, 1, output)
        self.assertIn("card/IMG101_2.jpg: there is no such file", output)
        self.assertIn("3 made, 0 left as they were, 1 failed", output)

    def test_an_output_folder_that_is_pulled_away_ends_it(self):
        put_shot("card", "a", "movie")
        put_shot("card", "b")
        process = self.start("--jobs", "1")
        self.wait_for_event("begun", "a_1-360.mov")
        os.rename("out", "away")
        output = process.communicate()[0].decode()
        self.assertEqual(process.returncode, 1, output)
        self.assertIn("the folder is gone", output)
        self.assertEqual(files_in("away"), set())
        self.assertFalse(os.path.exists("out"))

    def test_no_room_in_the_middle(self):
        os.mkdir("out")
        mounted = subprocess.run(["mount", "-t", "tmpfs", "-o", "size=80m", "tmpfs", "out"], stderr=subprocess.DEVNULL,
                                 check=False)
        if mounted.returncode != 0:
            self.skipTest("no right to mount a small volume")
        self.addCleanup(subprocess.run, ["umount", "out"], check=False)
        put_shot("card", "a", "movie")
        for number in range(3):
            put_shot("card", f"IMG{100 + number}")
        process = self.start("--jobs", "1", *SMALL)
        self.wait_for_movie_file()  # for whose room it looks before
        free = os.statvfs("out")
        with open("out/rest", "wb") as file:
            file.write(bytes(free.f_bavail * free.f_frsize - (2 << 20)))
        output = process.communicate()[0].decode()
        self.assertEqual(process.returncode, 1, output)
        self.assertEqual(output.count("not enough room: "), 3)
        self.assertIn("1 made, 0 left as they were, 3 failed", output)
        self.assertIn("out: not enough room for 3 panoramas: ", self.batch(status=1))
        os.remove("out/rest")
        self.assertIn("3 made, 1 left as they were, 0 failed", self.batch())

    def test_two_runs_do_not_collide(self):
        put_shot("card", "a", "movie")
        process = self.start()
        self.wait_for_event("begun", "a_1-360.mov")
        told = self.batch(status=1)
        self.assertRegex(told, rf"out: a run on \S+ \(process {process.pid}\) works there; wait for its end")
        process.communicate()
        self.assertEqual(process.returncode, 0)
        self.assertEqual(count_of("done"), {"a_1-360.mov": 1})

    def test_the_lock_of_a_killed_run_counts_for_nothing(self):
        put_shot("card", "a", "movie")
        process = self.start()
        self.wait_for_event("begun", "a_1-360.mov")
        process.kill()
        process.wait()
        self.assertTrue(os.path.exists("out/.nq360/lock.0"))
        self.assertIn("1 made", self.batch())
        self.assertEqual(os.listdir("out/.nq360"), ["journal.jsonl"])


class InATerminal(CommandTest):
    def setUp(self):
        super().setUp()
        os.mkdir("card")

    def test_one_bar_over_all_with_the_current_shot(self):
        for number in range(6):
            put_shot("card", f"SHOT{100 + number}")
        put_shot("card", "movie", "movie")
        os.truncate("card/SHOT103_1.jpg", 100000)
        terminal = Terminal("batch", "card", "--to", "out", *SMALL)
        self.assertEqual(terminal.end(), 1, terminal.text)
        self.assertRegex(terminal.text, rb" % \[[^\]]*\.+\] 0/7 shots, movie_1-360\.mov")
        self.assertRegex(terminal.text, rb"[4-6]/7 shots, \d:\d\d left, \w+_1-360")
        self.assertIn(b"SHOT103_1.jpg: is not whole", terminal.text)
        self.assertNotIn(b"SHOT102_1-360.jpg: 320x160", terminal.text)  # made ones do not scroll by
        self.assertIn(b"6 made, 0 left as they were, 1 failed", terminal.text)
        shown = [int(share) for share in re.findall(rb"\r\x1b\[K *(\d+) % \[[^\r]*shots", terminal.text)]
        self.assertEqual(shown, sorted(shown))

    def test_the_bar_is_one_line_of_a_narrow_screen(self):
        for number in range(20):
            put_shot("card", f"A_SHOT_WITH_A_LONG_NAME_{100 + number}")
        os.truncate("card/A_SHOT_WITH_A_LONG_NAME_105_1.jpg", 100000)
        tmux = ["tmux", "-L", os.path.basename(self.folder), "-f", "/dev/null"]
        self.addCleanup(subprocess.run, [*tmux, "kill-server"], stderr=subprocess.DEVNULL, check=False)
        command = f"'{COMMAND}' batch card --to out; sleep 600"
        subprocess.run([*tmux, "new-session", "-d", "-x", "70", "-y", "20", command], check=True)
        screens = []
        while not screens or not any("made, " in line for line in screens[-1]):
            shown = subprocess.run([*tmux, "capture-pane", "-p"], capture_output=True, check=True).stdout.decode()
            screens.append(shown.split("\n"))
            time.sleep(0.02)
        bars = [[line for line in screen if " shots" in line] for screen in screens]
        self.assertLessEqual(max(map(len, bars)), 1)
        self.assertEqual(bars[-1], [])
        running = [bar[0] for bar in bars if bar and ", A_SHOT" in bar[0]]
        self.assertTrue(running)
        for bar in running:
            self.assertRegex(bar, r"^ *\d+ % \[#*\.*\] \d+/20 shots, (0:\d\d left, )?A_SHOT_WITH_A_LONG[-.\w]*$")
        self.assertIn("LONG_NAME_105_1.jpg: is not whole", "".join(screens[-1]))
        self.assertIn("19 made, 0 left as they were, 1 failed", screens[-1])

    def test_ctrl_c_ends_it_and_leaves_nothing_half(self):
        put_shot("card", "movie", "movie")
        put_shot("card", "still")
        terminal = Terminal("batch", "card", "--to", "out", "--jobs", "1")
        terminal.read_until(b" left, movie_1-360.mov")
        terminal.type(b"\x03")
        self.assertEqual(terminal.end(), 130, terminal.text)
        self.assertIn(b"stopping once the frames begun are made", terminal.text)
        self.assertIn(b"cancelled; 0 made, 0 left as they were, 0 failed, 2 not made", terminal.text)
        self.assertEqual(files_in("out"), set())
        self.assertEqual(os.listdir("out/.nq360"), ["journal.jsonl"])
        self.assertEqual(count_of("cancelled"), {"movie_1-360.mov": 1})

    def test_a_second_signal_ends_it_at_once(self):
        put_shot("card", "movie", "movie")
        terminal = Terminal("batch", "card", "--to", "out")
        terminal.read_until(b" left, movie_1-360.mov")
        terminal.signal(signal.SIGINT)
        terminal.signal(signal.SIGTERM)
        self.assertIn(terminal.end(), (-signal.SIGTERM, -signal.SIGINT), terminal.text)
        self.assertEqual(files_in("out"), set())
        self.assert_done(run("batch", "card", "--to", "out", *SMALL))
        self.assertEqual(os.listdir("out/.nq360"), ["journal.jsonl"])


if __name__ == "__main__":
    main()
