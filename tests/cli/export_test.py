"""nq360 export and its preview"""
import ctypes
import json
import os
import struct
import subprocess
import zlib

from command import SAMPLE, CommandTest, gray, main, run, sample

STILLS = [sample("still1.jpg"), sample("still2.jpg")]
MOVIES = [sample("movie1.mov"), sample("movie2.mov")]


def probe(path, entries, stream="v"):
    """What ffprobe tells of the movie's picture or sound, a list of lines."""
    lines = subprocess.run(["ffprobe", "-v", "error", "-select_streams", stream, "-show_entries", entries, "-of",
                            "csv=p=0", "file:" + path], capture_output=True, check=True).stdout.decode().split()
    return [line.rstrip(",") for line in lines]


def content(path):
    with open(path, "rb") as file:
        return file.read()


def frames(path, width, height):
    """The luma of all frames of a movie, each as rows of bytes."""
    data = subprocess.run(["ffmpeg", "-v", "error", "-i", "file:" + path, "-f", "rawvideo", "-pix_fmt", "gray", "-"],
                          stdin=subprocess.DEVNULL, capture_output=True, check=True).stdout
    size = width * height
    return [[data[at + y * width:at + (y + 1) * width] for y in range(height)] for at in range(0, len(data), size)]


def mean_difference(rows1, rows2):
    """Of two pictures of the same size, in steps of luma."""
    total = sum(abs(a - b) for row1, row2 in zip(rows1, rows2) for a, b in zip(row1, row2))
    return total / (len(rows1) * len(rows1[0]))


class Size(CommandTest):
    def make(self, kind, size, *options):
        extension = "jpg" if kind == "still" else "mov"
        names = [f"lens{lens}.{extension}" for lens in (1, 2)]
        subprocess.run([SAMPLE, kind, *names, "--size", str(size), *options], check=True)
        return names

    def size_of(self, path):
        return probe(path, "stream=width,height")

    def test_follows_the_lens_width(self):
        for lens, expected in [(1440, "2880,1440"), (1936, "3840,1920"), (3888, "7680,3840")]:
            with self.subTest(lens=lens):
                self.assert_done(run("export", *self.make("still", lens), "out.jpg", "--force"))
                self.assertEqual(self.size_of("out.jpg"), [expected])

    def test_stays_within_what_the_encoder_takes(self):
        movies = self.make("movie", 3888, "--codec", "mjpeg", "--frames", "2")
        self.assert_done(run("export", *movies, "out.mp4", "--sound", "none"))
        self.assertEqual(self.size_of("out.mp4"), ["3840,1920"])

    def test_is_what_was_asked_for(self):
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "600x300"))
        self.assertEqual(self.size_of("out.jpg"), ["600,300"])
        self.assert_refused(run("export", *MOVIES, "out.mov", "--size", "601x300"), 1, "out.mov: ", "even", "601")
        self.assertFalse(os.path.exists("out.mov"))

    def test_a_shape_that_viewers_distort_is_told(self):
        result = run("export", *STILLS, "out.jpg", "--size", "600x400")
        self.assert_done(result)
        self.assertIn(b"--size: a panorama is twice as wide as high", result.stderr)
        self.assertEqual(run("export", *STILLS, "out.jpg", "--size", "600x300", "-f").stderr, b"")

    def test_more_pixels_than_can_be_held_are_told(self):
        for options in [[], ["--preview"]]:
            self.assert_refused(run("export", *STILLS, "out.jpg", "--size", "32766x16382", *options), 2,
                                "--size: no picture of more than about 268 million pixels")


class Picture(CommandTest):
    def test_has_the_date_of_lens_1_unless_told_otherwise(self):
        for options, expected in [([], "2026:01:02 03:04:05"), (["--date", "[a,b]"], "[a,b]")]:
            self.assert_done(run("export", *STILLS, "out.jpg", "--size", "64x32", "--force", *options))
            date = subprocess.run(["exiftool", "-s3", "-XMP-GPano:FirstPhotoDate", "out.jpg"], capture_output=True,
                                  check=True).stdout.decode().strip()
            self.assertEqual(date, expected)

    def test_angles_and_corrections_reach_the_library(self):
        # Each changes the picture, and another value changes it otherwise.
        options = [[], ["--tilt", "90"], ["--tilt=-90"], ["--tilt", "45.5"], ["--yaw", "40.5"], ["--pitch", "40.5"],
                   ["--roll", "40.5"], ["--turn1", "30"], ["--turn2", "30"], ["--turn2=-0.5e1"],
                   ["--correct1", "40,-,-"], ["--correct2", "40,-,-"], ["--correct2=-40,-,-"], ["--gain1", "0.5"], ["--gain2", "0.5"]]
        pictures = []
        for i, option in enumerate(options):
            self.assert_done(run("export", *STILLS, f"{i}.jpg", "--size", "256x128", *option))
            pictures.append(gray(f"{i}.jpg", 256, 128))
        for i, one in enumerate(pictures):
            for other in pictures[:i]:
                self.assertGreater(mean_difference(one, other), 1)
        # Lens 1 lies above the seam.
        corrected = pictures[options.index(["--correct1", "40,-,-"])]
        self.assertGreater(mean_difference(pictures[0][:60], corrected[:60]), 20)
        self.assertLess(mean_difference(pictures[0][68:], corrected[68:]), 2)

    def test_colours_are_corrected_apart(self):
        def colour(path):
            return subprocess.run(["ffmpeg", "-v", "error", "-i", path, "-vf", "scale=1:1", "-f", "rawvideo",
                                   "-pix_fmt", "yuvj444p", "-"], capture_output=True, check=True).stdout
        self.assert_done(run("export", *STILLS, "a.jpg", "--size", "64x32"))
        self.assert_done(run("export", *STILLS, "b.jpg", "--size", "64x32", "--correct1", "-,20,-10", "--correct2",
                             "-,20,-10"))
        change = [b - a for a, b in zip(colour("a.jpg"), colour("b.jpg"))]
        self.assertLess(abs(change[0]), 3)
        self.assertLess(abs(change[1] - 20), 4)
        self.assertLess(abs(change[2] + 10), 4)

    def test_a_single_gain_is_for_brightness_and_colour(self):
        self.assert_done(run("export", *STILLS, "a.jpg", "--size", "64x32", "--gain1", "0.5", "--gain2", "0.5,0.5,0.5"))
        self.assert_done(run("export", *STILLS, "b.jpg", "--size", "64x32", "--gain1", "0.5,0.5,0.5", "--gain2", "0.5"))
        self.assert_done(run("export", *STILLS, "c.jpg", "--size", "64x32", "--gain1", "0.5,1,1", "--gain2", "0.5,-,-"))
        self.assertEqual(content("a.jpg"), content("b.jpg"))
        self.assertNotEqual(content("a.jpg"), content("c.jpg"))

    def test_its_defaults_are_those_of_people(self):
        def size(name, *options):
            self.assert_done(run("export", *STILLS, name, *options))
            return os.path.getsize(name)
        usual = size("usual.jpg")
        self.assertGreater(usual, 1.5 * size("exact.jpg", "--exact"))
        self.assertEqual(usual, size("same.jpg", "--quality", "95", "--feather", "1.5"))
        self.assertGreater(usual, size("coarse.jpg", "--quality", "50"))
        self.assertNotEqual(content("usual.jpg"), content(size("hard.jpg", "--feather", "0") and "hard.jpg"))
        # Both coded alike, one of them filtered.
        size("small.jpg", "--size", "64x32")
        size("coarse.jpg", "--size", "64x32", "--exact", "--quality", "95", "--feather", "1.5", "--force")
        self.assertGreater(mean_difference(gray("small.jpg", 64, 32), gray("coarse.jpg", 64, 32)), 1)
        for name, make in [("usual.jpg", "MERIDAN OPTICS"), ("exact.jpg", "")]:
            self.assertEqual(subprocess.run(["exiftool", "-s3", "-IFD0:Make", name], capture_output=True,
                                            check=True).stdout.decode().strip(), make)

    def test_exact_is_what_the_plain_function_gives(self):
        self.assert_done(run("export", *STILLS, "exact.jpg", "--exact", "--size", "600x300", "--tilt", "30",
                             "--correct1", "5,-,2", "--turn2", "-3"))
        library = ctypes.CDLL(os.environ["NQ360_LIBRARY"])
        number = ctypes.c_float
        none = -99999999
        self.assertEqual(library.NQ360_export(
            *[name.encode() for name in STILLS], b"plain.jpg", None, 600, 300, 30, 5, none, 2, none, none, none, 0,
            b"2026:01:02 03:04:05", None, None, number(0), number(-3), number(0), number(0), number(3600), number(3600)),
            0)
        self.assertEqual(content("exact.jpg"), content("plain.jpg"))

    def test_a_date_cannot_break_its_metadata(self):
        for options in [[], ["--exact"]]:
            self.assert_done(run("export", *STILLS, "out.jpg", "--size", "64x32", "--date", '<a&b>"', "--force", *options))
            result = subprocess.run(["exiftool", "-validate", "-warning", "-s3", "-XMP-GPano:all", "out.jpg"],
                                    capture_output=True, check=True)
            self.assertNotIn(b"XML", result.stdout + result.stderr)
            self.assertIn(b"equirectangular", result.stdout)

    def test_options_without_effect_are_told(self):
        result = run("export", *STILLS, "out.jpg", "--size", "64x32", "--start", "1", "--sound", "2", "--web")
        self.assert_done(result)
        self.assertIn(b"--start, --sound, --web: of no effect", result.stderr)

    def test_damaged_inputs_are_refused_by_name(self):
        whole = content(STILLS[0])
        with open("cut.jpg", "wb") as file:
            file.write(whole[:len(whole) // 2])
        cases = [["cut.jpg", STILLS[1]], [STILLS[0], "cut.jpg"]]
        for lenses in cases:
            self.assert_refused(run("export", *lenses, "out.jpg", "--size", "64x32"), 1, "cut.jpg: is not whole: ",
                                "% of the picture is there", "--partial")
        self.assertFalse(os.path.exists("out.jpg"))
        result = run("export", *cases[1], "out.jpg", "--size", "64x32", "--partial")
        self.assert_done(result)
        self.assertRegex(result.stderr, rb"cut\.jpg: \d+ % of the picture is there")

    def test_a_band_covers_the_seam(self):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=white:s=2880x200", "-frames:v", "1",
                        "band.png"], check=True)
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "256x128", "--band", "band.png"))
        self.assertGreater(min(gray("out.jpg", 256, 128)[64]), 200)
        self.assert_refused(run("export", *STILLS, "no.jpg", "--band", "missing.png"), 1, "missing.png", "band")


    def test_what_cannot_be_a_band_is_told(self):
        def picture(name, size, pixels="rgb24"):
            subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", f"color=white:s={size}", "-frames:v", "1",
                            "-pix_fmt", pixels, name], check=True)
        picture("square.png", "300x300")
        picture("square.jpg", "300x300", "yuvj420p")
        picture("clear.png", "600x20", "rgba")
        picture("opaque.png", "600x20")
        opaque = content("opaque.png")
        chunk = b"tRNS" + bytes(6)  # black is transparent
        at = opaque.index(b"IDAT") - 4
        with open("partly.png", "wb") as file:
            file.write(opaque[:at] + struct.pack(">I", 6) + chunk + struct.pack(">I", zlib.crc32(chunk)) + opaque[at:])
        os.mkfifo("pipe.png")
        for band, why in [("square.png", "would cover the whole panorama (300x300)"),
                          ("square.jpg", "would cover the whole panorama (300x300)"),
                          ("clear.png", "is transparent"), ("partly.png", "is transparent"), ("pipe.png", "is a pipe"), (".", "is a folder")]:
            for options in [[], ["--preview"]]:
                self.assert_refused(run("export", *STILLS, "out.jpg", "--size", "64x32", "--band", band, *options), 1,
                                    f"{band}: {why}")
        picture("strip.jpg", "600x20", "yuvj420p")
        for band in ["strip.jpg", "opaque.png"]:
            self.assert_done(run("export", *STILLS, "out.jpg", "--size", "64x32", "--force", "--band", band))


class Movie(CommandTest):
    def test_is_the_same_for_any_number_of_jobs(self):
        made = {}
        for jobs in ["1", "3"]:
            self.assert_done(run("export", *MOVIES, "out.mov", "--size", "64x32", "--force", "--jobs", jobs))
            made[jobs] = content("out.mov")
        self.assertEqual(made["1"], made["3"])
        for wrong in ["0", "257", "two"]:
            self.assert_refused(run("export", *MOVIES, "other.mov", "--jobs", wrong), 2, "--jobs", "1 to 256")

    def test_has_the_sound_asked_for(self):
        # Where there is sound at all the movie has a track for it; none leaves that empty.
        packets = {}
        for sound in ["1", "2", "none"]:
            self.assert_done(run("export", *MOVIES, "out.mov", "--size", "64x32", "--force", "--sound", sound))
            packets[sound] = len(probe("out.mov", "packet=pts", "a"))
        self.assertGreater(packets["1"], 10)
        self.assertGreater(packets["2"], 10)
        self.assertEqual(packets["none"], 0)

    def test_a_range_in_either_form(self):
        counts = []
        for options in [["--start", "0.25", "--end", "0.75"], ["--start", "0:0.25", "--end", "0:00:00.75"],
                        ["--start", "0.5"], ["--end", "0.5"], ["--start2", "0.5"]]:
            self.assert_done(run("export", *MOVIES, "out.mov", "--size", "64x32", "--force", *options))
            counts.append(int(probe("out.mov", "stream=nb_frames")[0]))
        self.assertEqual(counts[0], counts[1])
        for count in counts:
            self.assertLessEqual(abs(count - 15), 1)

    def test_begins_and_ends_with_the_frames_meant(self):
        # 0.5 s lies behind frame 14, at 0.467 s, and before frame 15, at 0.5005 s.
        self.assert_done(run("export", *MOVIES, "all.mov", "--size", "256x128"))
        self.assert_done(run("export", *MOVIES, "part.mov", "--size", "256x128", "--start", "0.5", "--end", "0.601"))
        self.assertEqual(probe("part.mov", "stream=nb_frames"), ["4"])
        every = frames("all.mov", 256, 128)
        for i, frame in enumerate(frames("part.mov", 256, 128)):
            distances = [mean_difference(frame, other) for other in every]
            self.assertEqual(distances.index(min(distances)), 15 + i)

    def test_exact_takes_the_times_as_they_are(self):
        for options, expected in [([], "15"), (["--exact"], "14")]:
            self.assert_done(run("export", *MOVIES, "out.mov", "--size", "64x32", "--force", "--start", "0.5", *options))
            self.assertEqual(probe("out.mov", "stream=nb_frames"), [expected])

    def test_sound_that_is_not_there_is_told(self):
        subprocess.run([SAMPLE, "movie", "a.mov", "b.mov", "--size", "1440", "--frames", "2"], check=True)
        self.assert_refused(run("export", "a.mov", "b.mov", "out.mov", "--size", "64x32", "--sound", "2"), 1,
                            "b.mov: has no sound; --sound 1 takes that of the other lens")
        result = run("export", "b.mov", "a.mov", "out.mov", "--size", "64x32")
        self.assert_done(result)
        self.assertIn(b"b.mov: has no sound; --sound 2 takes", result.stderr)

    def test_lengths_that_differ_are_told(self):
        subprocess.run([SAMPLE, "movie", "a.mov", "b.mov", "--size", "1440", "--frames", "12", "--frames2", "4"],
                       check=True)
        result = run("export", "a.mov", "b.mov", "out.mov", "--size", "64x32")
        self.assert_done(result)
        self.assertIn(b"a.mov gives 0.4 seconds, b.mov 0.1: the panorama ends with the shorter", result.stderr)
        result = run("export", "a.mov", "b.mov", "out.mov", "--size", "64x32", "--end", "0.1", "-f")
        self.assertNotIn(b"shorter", result.stderr)

    def test_for_sites(self):
        self.assert_done(run("export", *MOVIES, "out.mp4", "--size", "512x256", "--aac", "--web", "--bit-rate", "300k"))
        data = content("out.mp4")
        self.assertLess(data.index(b"moov"), data.index(b"mdat"))
        self.assertEqual(probe("out.mp4", "stream=codec_name", "a"), ["aac"])
        size = os.path.getsize("out.mp4")
        self.assert_done(run("export", *MOVIES, "out.mp4", "--size", "512x256", "--aac", "--bit-rate", "3M", "-f"))
        self.assertGreater(os.path.getsize("out.mp4"), 2 * size)
        data = content("out.mp4")
        self.assertGreater(data.index(b"moov"), data.index(b"mdat"))

    def test_in_json(self):
        result = run("export", *MOVIES, "out.mov", "--size", "64x32", "--json")
        self.assert_done(result)
        self.assertEqual(result.stderr, b"")
        replies = [json.loads(line) for line in result.stdout.splitlines()]
        self.assertEqual([reply["state"] for reply in replies], ["started"] + 3 * ["progress"] + ["finished"])
        self.assertEqual([reply["frame_count"] for reply in replies[:-1]], [30, 10, 20, 30])
        self.assertEqual((replies[-1]["movie_path2"], replies[-1]["export_path"]), (MOVIES[1], "out.mov"))
        result = run("export", *MOVIES, "out.mov", "--size", "63x32", "--json", "--force")
        self.assertEqual(result.returncode, 1)
        (reply,) = [json.loads(line) for line in result.stdout.splitlines() if b"failed" in line]
        self.assertEqual(reply["errnum"], "39999")

    def test_a_dry_run_writes_nothing(self):
        with open("out.mov", "w", encoding="ascii") as file:
            file.write("precious")
        result = run("export", *MOVIES, "out.mov", "--dry-run")
        self.assert_done(result)
        self.assertEqual(result.stdout, b"out.mov: can be made, about 30 frames; nothing is written\n")
        self.assert_refused(run("export", MOVIES[0], "no.mov", "out.mov", "--dry-run"), 1, "no.mov: there is no")
        self.assertEqual((os.listdir("."), content("out.mov")), (["out.mov"], b"precious"))

    def test_a_start_behind_the_end_is_told(self):
        self.assert_refused(run("export", *MOVIES, "out.mov", "--start", "1:40"), 1, MOVIES[0], "lasts 1.0 seconds")


class Output(CommandTest):
    def test_is_not_overwritten_without_force(self):
        with open("out.jpg", "w", encoding="ascii") as file:
            file.write("precious")
        for options in [[], ["--preview"]]:
            self.assert_refused(run("export", *STILLS, "out.jpg", "--size", "64x32", *options), 1,
                                "out.jpg: exists already", "--force")
            with open("out.jpg", encoding="ascii") as file:
                self.assertEqual(file.read(), "precious")
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "64x32", "-f"))

    def test_in_a_folder_is_called_after_lens_1(self):
        os.mkdir("made")
        self.assert_done(run("export", *STILLS, "made", "--size", "64x32"))
        self.assert_done(run("export", *STILLS, "made/", "--preview", "--size", "64x32"))
        self.assert_done(run("export", *MOVIES, "made", "--size", "64x32"))
        self.assertEqual(sorted(os.listdir("made")), ["movie1-360.mov", "still1-360.jpg", "still1-preview.jpg"])
        self.assert_refused(run("export", *STILLS, "made"), 1, "made/still1-360.jpg: exists already")

    def test_is_never_an_input(self):
        for lens in (1, 2):
            os.link(sample(f"different{lens}.jpg"), f"{lens}.jpg")
        with open("1.jpg", "rb") as file:
            before = file.read()
        os.symlink("1.jpg", "link.jpg")
        for options in [[], ["--preview"]]:
            for out in ["1.jpg", "2.jpg", "link.jpg"]:
                self.assert_refused(run("export", "1.jpg", "2.jpg", out, "--force", *options), 1, out, "input itself")
        with open("1.jpg", "rb") as file:
            self.assertEqual(file.read(), before)

    def test_a_message_names_the_file_and_what_to_do(self):
        subprocess.run([SAMPLE, "still", "a.jpg", "b.jpg", "--size", "1436"], check=True)
        open("empty.jpg", "w", encoding="ascii").close()
        with open("zeros.jpg", "wb") as file:
            file.write(bytes(5000))
        os.mkdir("folder.jpg")
        os.mkfifo("pipe.jpg")
        cases = [
            (["zeros.jpg", STILLS[1], "out.jpg"], ["zeros.jpg: holds no picture"]),
            ([STILLS[0], "zeros.jpg", "out.jpg"], ["zeros.jpg: holds no picture"]),
            (["empty.jpg", STILLS[1], "out.jpg"], ["empty.jpg: cannot be read as a picture"]),
            (["folder.jpg", STILLS[1], "out.jpg"], ["folder.jpg: is a folder; name the picture or movie of lens 1"]),
            (["pipe.jpg", STILLS[1], "out.jpg"], ["pipe.jpg: is a pipe"]),
            ([*STILLS, "pipe.jpg", "-f"], ["pipe.jpg: is a pipe or a device; only a file can be written"]),
            ([*STILLS, "pipe.jpg", "-f", "--preview"], ["pipe.jpg: is a pipe"]),
            ([STILLS[0], "no.jpg", "out.jpg"], ["no.jpg: there is no such file"]),
            ([STILLS[0], "empty.jpg", "out.jpg"], ["empty.jpg: cannot be read as a picture", "damaged"]),
            ([STILLS[0], "b.jpg", "out.jpg"], ["b.jpg: not of the size", "1436x1436, not 1440x1440"]),
            (["a.jpg", "b.jpg", "out.jpg"], ["a.jpg: not a picture of this camera", "1440", "not 1436"]),
            ([*STILLS, "no/out.jpg"], ["no/out.jpg: its folder does not exist"]),
        ]
        for arguments, texts in cases:
            with self.subTest(arguments=arguments):
                self.assert_refused(run("export", *arguments), 1, *texts)
                self.assertFalse(os.path.exists("out.jpg"))

    def test_wrong_use_is_told_apart(self):
        cases = [
            ([*STILLS, "out.mov"], "out.mov: two pictures make a picture"),
            ([*MOVIES, "out.jpg"], "out.jpg: movies make a movie"),
            ([*MOVIES, "out.mov", "--preview"], "out.mov: a preview is a picture"),
            ([*STILLS], "OUT is required"),
            ([*STILLS, "out.jpg", "more"], "more"),
            ([*STILLS, "out.jpg", "--size", "12"], "--size: expected WIDTHxHEIGHT"),
            ([*STILLS, "out.jpg", "--size", "0x10"], "--size: expected WIDTHxHEIGHT"),
            ([*STILLS, "out.jpg", "--tilt", "1.5x"], "--tilt: expected degrees"),
            ([*STILLS, "out.jpg", "--yaw", "361"], "--yaw: expected degrees, -360 to 360"),
            ([*STILLS, "out.jpg", "--feather", "5.6"], "--feather: expected degrees, 0 to 5.5"),
            ([*STILLS, "out.jpg", "--feather", "nan"], "--feather: expected degrees, 0 to 5.5"),
            ([*STILLS, "out.jpg", "--quality", "0"], "--quality: expected 1 to 100"),
            ([*STILLS, "out.jpg", "--gain1", "1,2"], "--gain1: expected a factor, or three Y,U,V"),
            ([*STILLS, "out.jpg", "--gain2=-1"], "--gain2: expected factors of 0 to 16"),
            ([*MOVIES, "out.mov", "--bit-rate", "289M"], "--bit-rate: expected bits per second up to 288M"),
            ([*MOVIES, "out.mov", "--bit-rate", "M"], "--bit-rate: expected bits per second up to 288M"),
            ([*STILLS, "out.jpg", "--turn1", "nan"], "--turn1: expected degrees"),
            ([*STILLS, "out.jpg", "--correct1", "1,2"], "--correct1: expected three numbers"),
            ([*STILLS, "out.jpg", "--correct2", "1,2,x"], "--correct2: expected Y,U,V"),
            ([*STILLS, "out.jpg", "--correct2", "1,2,256"], "--correct2: expected Y,U,V"),
            ([*STILLS, "out.jpg", "--sound", "3"], "--sound: expected 1, 2 or none"),
            ([*MOVIES, "out.mov", "--start", "1:60"], "--start: expected seconds or h:m:s"),
            ([*MOVIES, "out.mov", "--start", "-1"], "--start: expected seconds or h:m:s"),
            ([*MOVIES, "out.mov", "--start", "2", "--end", "1"], "does not lie behind its start"),
            ([*STILLS, "out.jpg", "--quiet", "--verbose"], "--quiet"),
            ([*STILLS, "out.jpg", "--bogus"], "--bogus"),
        ]
        for arguments, text in cases:
            with self.subTest(arguments=arguments):
                self.assert_refused(run("export", *arguments), 2, text)
        self.assertEqual(os.listdir("."), [])


class Preview(CommandTest):
    def test_shows_what_an_export_shows(self):
        lenses = [sample("turned1.jpg"), sample("turned2.jpg")]
        options = ["--tilt", "70", "--turn1", "20", "--turn2=-35", "--correct1", "10,-,5"]
        self.assert_done(run("export", *lenses, "export.jpg", "--size", "512x256", *options))
        self.assert_done(run("export", *lenses, "preview.jpg", "--size", "512x256", "--preview", *options))
        same = mean_difference(gray("export.jpg", 512, 256), gray("preview.jpg", 512, 256))
        self.assert_done(run("export", *lenses, "other.jpg", "--size", "512x256", "--preview", "--tilt", "71",
                             *options[2:]))
        other = mean_difference(gray("export.jpg", 512, 256), gray("other.jpg", 512, 256))
        self.assertLess(same, 5)  # an export is compressed harder
        self.assertGreater(other, 10)

    def test_shows_a_movie_at_its_start(self):
        def preview(name, *options):
            self.assert_done(run("export", *MOVIES, name, "--preview", *options))
            return gray(name, 512, 256)
        first = preview("0.jpg")
        later = preview("1.jpg", "--start", "0.5")
        self.assertEqual(probe("0.jpg", "stream=width,height"), ["1024,512"])
        self.assert_done(run("export", *MOVIES, "out.mov", "--size", "1024x512", "--sound", "none"))
        self.assertLess(mean_difference(first, gray("out.mov", 512, 256)), 2.5)
        # A movie's values end before black and white, a picture's do not: both look the same all the same.
        self.assertLess(mean_difference(later, gray("out.mov", 512, 256, seek=0.49)), 2.5)
        self.assertGreater(mean_difference(first, later), 4)

    def test_its_messages_name_the_file(self):
        self.assert_refused(run("export", *MOVIES, "out.jpg", "--preview", "--start", "5"), 1, MOVIES[0], "lasts")
        self.assert_refused(run("export", STILLS[0], "no.jpg", "out.jpg", "--preview"), 1, "no.jpg: there is no")
        self.assert_refused(run("export", *STILLS, "no/out.jpg", "--preview"), 1, "no/out.jpg: its folder does not exist")
        self.assert_refused(run("export", *STILLS, "out.jpg", "--preview", "--band", "no.png"), 1, "no.png", "band")
        self.assertEqual(os.listdir("."), [])

    def test_a_band_covers_its_seam(self):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=white:s=2880x200", "-frames:v", "1",
                        "band.png"], check=True)
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "256x128", "--preview", "--band", "band.png"))
        self.assertGreater(min(gray("out.jpg", 256, 128)[64]), 200)


if __name__ == "__main__":
    main()
