"""nq360 export and its preview"""
import os
import subprocess

from command import SAMPLE, CommandTest, gray, main, run, sample

STILLS = [sample("still1.jpg"), sample("still2.jpg")]
MOVIES = [sample("movie1.mov"), sample("movie2.mov")]


def probe(path, entries, stream="v"):
    """What ffprobe tells of the movie's picture or sound, a list of lines."""
    lines = subprocess.run(["ffprobe", "-v", "error", "-select_streams", stream, "-show_entries", entries, "-of",
                            "csv=p=0", "file:" + path], capture_output=True, check=True).stdout.decode().split()
    return [line.rstrip(",") for line in lines]


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
        self.assertEqual(self.size_of("out.mp4"), ["4096,2048"])

    def test_is_what_was_asked_for(self):
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "600x300"))
        self.assertEqual(self.size_of("out.jpg"), ["600,300"])
        self.assert_refused(run("export", *MOVIES, "out.mov", "--size", "601x300"), 1, "out.mov: ", "even", "601")
        self.assertFalse(os.path.exists("out.mov"))


class Picture(CommandTest):
    def test_has_the_date_of_lens_1_unless_told_otherwise(self):
        for options, expected in [([], "2026:01:02 03:04:05"), (["--date", "[a,b]"], "[a,b]")]:
            self.assert_done(run("export", *STILLS, "out.jpg", "--size", "64x32", "--force", *options))
            date = subprocess.run(["exiftool", "-s3", "-XMP-GPano:FirstPhotoDate", "out.jpg"], capture_output=True,
                                  check=True).stdout.decode().strip()
            self.assertEqual(date, expected)

    def test_angles_and_corrections_reach_the_library(self):
        # Each changes the picture, and another value changes it otherwise.
        options = [[], ["--tilt", "90"], ["--tilt=-90"], ["--turn1", "30"], ["--turn2", "30"], ["--turn2=-0.5e1"],
                   ["--correct1", "40,-,-"], ["--correct2", "40,-,-"], ["--correct2=-40,-,-"]]
        pictures = []
        for i, option in enumerate(options):
            self.assert_done(run("export", *STILLS, f"{i}.jpg", "--size", "256x128", *option))
            pictures.append(gray(f"{i}.jpg", 256, 128))
        for i, one in enumerate(pictures):
            for other in pictures[:i]:
                self.assertGreater(mean_difference(one, other), 1)
        # Lens 1 lies above the seam.
        self.assertGreater(mean_difference(pictures[0][:60], pictures[6][:60]), 20)
        self.assertLess(mean_difference(pictures[0][68:], pictures[6][68:]), 2)

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

    def test_a_band_covers_the_seam(self):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=white:s=2880x200", "-frames:v", "1",
                        "band.png"], check=True)
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "256x128", "--band", "band.png"))
        self.assertGreater(min(gray("out.jpg", 256, 128)[64]), 200)
        self.assert_refused(run("export", *STILLS, "no.jpg", "--band", "missing.png"), 1, "missing.png", "band")


class Movie(CommandTest):
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
        os.mkdir("folder.jpg")
        cases = [
            ([STILLS[0], "no.jpg", "out.jpg"], ["no.jpg: there is no such file"]),
            ([STILLS[0], "empty.jpg", "out.jpg"], ["empty.jpg: cannot be read as a picture", "damaged"]),
            ([STILLS[0], "b.jpg", "out.jpg"], ["b.jpg: not of the size", "1436x1436, not 1440x1440"]),
            (["a.jpg", "b.jpg", "out.jpg"], ["a.jpg: not a picture of this camera", "1440", "not 1436"]),
            ([*STILLS, "no/out.jpg"], ["no/out.jpg: its folder does not exist"]),
            ([*STILLS, "folder.jpg"], ["folder.jpg: is a folder"]),
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
            ([*STILLS, "out.jpg", "--tilt", "1.5"], "--tilt: expected a whole number"),
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
        self.assert_refused(run("export", *STILLS, "no/out.jpg", "--preview"), 1, "no/out.jpg: cannot be written")
        self.assert_refused(run("export", *STILLS, "out.jpg", "--preview", "--size", "63x32"), 2, "even sides")
        self.assert_refused(run("export", *STILLS, "out.jpg", "--preview", "--band", "no.png"), 1, "no.png", "band")
        self.assertEqual(os.listdir("."), [])

    def test_a_band_covers_its_seam(self):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=white:s=2880x200", "-frames:v", "1",
                        "band.png"], check=True)
        self.assert_done(run("export", *STILLS, "out.jpg", "--size", "256x128", "--preview", "--band", "band.png"))
        self.assertGreater(min(gray("out.jpg", 256, 128)[64]), 200)


if __name__ == "__main__":
    main()
