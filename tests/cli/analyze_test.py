"""nq360 analyze"""
import filecmp
import json
import os
import resource
import shutil
import subprocess
import sys

from command import COMMAND, SAMPLE, CommandTest, main, run, sample

KEYS = ["width", "height", "duration", "frame_count", "maker", "model", "orientaion", "capture_mode", "multi_capture",
        "camera_orientation", "youtube360_maker", "isTarget", "createdThumbnail", "movie_path", "thumbnail_path",
        "datetime", "type", "unread"]


def objects(output):
    """One object a line; anything that is not strict JSON in UTF-8 raises."""
    def refuse(constant):
        raise ValueError(constant)
    return [json.loads(line.decode("utf-8"), parse_constant=refuse) for line in output.splitlines()]


class Table(CommandTest):
    def test_tells_pictures_and_movies_apart(self):
        result = run("analyze", sample("still1.jpg"), sample("movie2.mov"))
        self.assert_done(result)
        header, picture, movie = result.stdout.decode().splitlines()
        self.assertEqual(header.split(), ["TYPE", "SIZE", "LENGTH", "FRAMES", "360", "DAMAGED", "DATE", "SOURCE",
                                          "NAME"])
        self.assertEqual(picture.split()[:8],
                         ["JPEG", "1440x1440", "-", "-", "yes", "-", "2026:01:02", "03:04:05"])
        self.assertEqual(movie.split()[:6], ["MOVIE", "1440x1440", "0:01", "30", "yes", "-"])
        self.assertTrue(movie.endswith("MERIDAN OPTICS RT-KA500    " + sample("movie2.mov")))

    def test_quiet_prints_no_head(self):
        result = run("analyze", "--quiet", sample("still1.jpg"))
        self.assert_done(result)
        (row,) = result.stdout.decode().splitlines()
        self.assertTrue(row.startswith("JPEG"))

    def test_lists_a_folder_sorted(self):
        for name in ["b.JPG", "a.jpeg", "C.mp4.jpg", ".hidden.jpg", "notes.txt"]:
            os.link(sample("still1.jpg"), name)
        os.mkdir("d.jpg")
        result = run("analyze", ".")
        self.assert_done(result)
        names = [line.split()[-1] for line in result.stdout.decode().splitlines()[1:]]
        self.assertEqual(names, ["./C.mp4.jpg", "./a.jpeg", "./b.JPG"])

    def test_lists_the_folders_in_a_folder_where_asked_to(self):
        for folder in ["a", "a/b", "a/.hidden", "a/c.mov"]:
            os.mkdir(folder)
            os.link(sample("still1.jpg"), folder + "/x.jpg")
        os.symlink("..", "a/b/around")
        for options, expected in [([], ["a/x.jpg"]), (["-r"], ["a/b/x.jpg", "a/c.mov/x.jpg", "a/x.jpg"])]:
            result = run("analyze", "a", *options)
            self.assert_done(result)
            self.assertEqual([line.split()[-1] for line in result.stdout.decode().splitlines()[1:]], expected)

    def test_a_folder_without_pictures_is_named(self):
        os.mkdir("empty")
        self.assert_refused(run("analyze", "empty"), 1, "empty: no picture", "-r looks into")
        self.assert_refused(run("analyze", "-r", "empty"), 1, "empty: no picture")

    def test_a_damaged_picture_is_marked(self):
        with open(sample("still1.jpg"), "rb") as file:
            whole = file.read()
        with open("cut.jpg", "wb") as file:
            file.write(whole[:len(whole) // 2])
        result = run("analyze", "cut.jpg", sample("still1.jpg"))
        self.assert_done(result)
        _, cut, good = result.stdout.decode().splitlines()
        self.assertEqual((cut.split()[5], good.split()[5]), ("picture", "-"))
        self.assertIn(b"2 described, 1 of them damaged, 0 failed", result.stderr)
        (cut,) = objects(run("analyze", "--json", "cut.jpg").stdout)
        self.assertEqual((cut["type"], cut["unread"]), ("JPEG", ["picture"]))

    def test_takes_names_as_names(self):
        names = ["[a,b].jpg", "100%.jpg", "a:b.jpg", 'with blank "quote".jpg', "-dash.jpg", "[c]"]
        os.mkdir("[c]")
        for name in names[:-1] + ["[c]/x.jpg"]:
            os.link(sample("still1.jpg"), name)
        result = run("analyze", *names[:4], "--", *names[4:])
        self.assert_done(result)
        shown = [line.split("RT-KA500    ")[1] for line in result.stdout.decode().splitlines()[1:]]
        self.assertEqual(shown, names[:4] + ["./-dash.jpg", "./[c]/x.jpg"])

    def test_a_text_cannot_steer_the_terminal(self):
        subprocess.run([SAMPLE, "still", "a.jpg", "b.jpg", "--size", "64", "--make", b"\x1b]0;x\x07\xff"], check=True)
        name = b"\x1b[2J\xfe.jpg"
        os.rename(b"a.jpg", name)
        result = run("analyze", name, b"\x1b[31mno")
        self.assertNotIn(b"\x1b", result.stdout + result.stderr)
        (result.stdout + result.stderr).decode("utf-8")


class Lines(CommandTest):
    def test_has_the_keys_of_the_reply(self):
        result = run("analyze", "--json", sample("movie1.mov"))
        self.assert_done(result)
        (movie,) = objects(result.stdout)
        self.assertEqual(list(movie), KEYS)
        self.assertEqual((movie["width"], movie["height"], movie["frame_count"]), (1440, 1440, 30))
        self.assertEqual(movie["duration"], 1.001)
        self.assertEqual((movie["type"], movie["isTarget"]), ("MOVIE", True))
        self.assertEqual(movie["movie_path"], sample("movie1.mov"))

    def test_survives_any_text_in_a_file(self):
        cases = [
            (b'quo"ted', b'back\\slash'),
            (b'a","model":"b', b"plain"),
            (b'x","orientaion":7,"capture_mode":7', b'y"}'),
            (b"tab\tnew\nline\x01\x1f", b"\xff\xfe\xc3"),
            (b"\\", b'"'),
            ("Ünï".encode(), b'","orientaion":'),
        ]
        for make, model in cases:
            with self.subTest(make=make, model=model):
                subprocess.run([SAMPLE, "still", "a.jpg", "b.jpg", "--size", "64", "--make", make, "--model", model],
                               check=True)
                result = run("analyze", "--json", "a.jpg")
                self.assert_done(result)
                (picture,) = objects(result.stdout)
                self.assertEqual(list(picture), KEYS)
                both = picture["maker"] + "|" + picture["model"]
                expected = (make + b"|" + model).decode("utf-8", "replace")
                # Where a maker looks like the next key nobody can tell where it ends: nothing is lost, though.
                self.assertEqual(both.replace("|", '","model":"'), expected.replace("|", '","model":"'))
                self.assertEqual((picture["orientaion"], picture["movie_path"]), (1, "a.jpg"))

    def test_survives_a_reply_that_was_cut(self):
        deep = self.folder
        while len(deep) < 3300:
            deep = os.path.join(deep, "\\" * 200)
            os.mkdir(deep)
        path = os.path.join(deep, "\\.jpg")
        os.link(sample("still1.jpg"), path)
        result = run("analyze", "--json", path, "--thumbnails", os.path.join(deep, "\\thumbnails"))
        self.assert_done(result)
        (picture,) = objects(result.stdout)
        self.assertEqual(list(picture), KEYS)
        self.assertEqual((picture["width"], picture["movie_path"], picture["type"], picture["unread"]),
                         (1440, path, None, None))

    def test_a_file_that_fails_has_a_line_too(self):
        open("empty.jpg", "w").close()
        result = run("analyze", "--json", "empty.jpg", 'no "such".jpg', sample("still2.jpg"))
        self.assertEqual(result.returncode, 1)
        empty, missing, picture = objects(result.stdout)
        self.assertEqual((empty["errnum"], missing["errnum"]), ("10001", "10000"))
        self.assertEqual(missing["movie_path"], 'no "such".jpg')
        self.assertEqual(picture["width"], 1440)
        self.assertIn(b"empty.jpg: cannot be read", result.stderr)


class Thumbnails(CommandTest):
    def test_names_cannot_collide(self):
        for folder in ["a", "b"]:
            os.mkdir(folder)
            os.link(sample("still1.jpg"), folder + "/x.jpg")
            os.link(sample("movie1.mov"), folder + "/x.mov")
        self.assert_done(run("analyze", "a", "b", "--thumbnails", "small", "--width", "100"))
        self.assertEqual(sorted(os.listdir("small")),
                         ["x.jpg.2.jpg", "x.jpg.jpg", "x.mov.2.jpg", "x.mov.jpg"])
        sizes = {tuple((p["width"], p["height"])) for p in objects(run("analyze", "--json", "small").stdout)}
        self.assertEqual(sizes, {(100, 100)})

    def test_never_go_among_the_pictures(self):
        for name in ["x.jpg", "x.jpg.jpg"]:
            shutil.copy(sample("still1.jpg"), name)
        self.assert_refused(run("analyze", ".", "--thumbnails", "../" + os.path.basename(self.folder)), 2, "another")
        self.assertEqual(sorted(os.listdir()), ["x.jpg", "x.jpg.jpg"])
        self.assertTrue(filecmp.cmp("x.jpg.jpg", sample("still1.jpg"), shallow=False))

    def test_never_replace_a_picture_through_a_link(self):
        os.mkdir("small")
        for folder in ["pictures", "others"]:
            os.mkdir(folder)
            shutil.copy(sample("still1.jpg"), folder + "/x.jpg")
        os.symlink("../pictures/x.jpg", "small/x.jpg.jpg")
        os.link("others/x.jpg", "small/x.jpg.2.jpg")
        self.assert_done(run("analyze", "pictures", "--thumbnails", "small"))
        self.assertIn("x.jpg.3.jpg", os.listdir("small"))
        for folder in ["pictures", "others"]:
            self.assertEqual(os.path.getsize(folder + "/x.jpg"), os.path.getsize(sample("still1.jpg")))

    def test_a_name_as_long_as_a_name_can_be(self):
        os.link(sample("still1.jpg"), "x" * 251 + ".jpg")
        self.assert_done(run("analyze", ".", "--thumbnails", "small"))
        self.assertEqual(len(os.listdir("small")), 1)


class ManyFiles(CommandTest):
    def fill(self, folder, good, broken):
        os.mkdir(folder)
        with open(sample("still1.jpg"), "rb") as file:
            beginning = file.read(300)
        for i in range(good):
            os.link(sample("still1.jpg"), f"{folder}/good{i:04}.jpg")
        for i in range(broken):
            path = f"{folder}/broken{i:04}.jpg"
            if i % 5 == 4:
                os.symlink("nothing", path)
                continue
            with open(path, "wb") as file:
                file.write([b"", b"no picture", beginning, bytes(5000)][i % 5])

    def peak(self, folder):
        process = subprocess.Popen([COMMAND, "analyze", folder], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
        usage = os.wait4(process.pid, 0)[2]
        process.returncode = 0
        return usage.ru_maxrss

    def test_are_told_in_order_however_many_at_a_time(self):
        # The slow ones come first.
        files = [sample("movie1.mov"), sample("movie2.mov"), "nothing.jpg", sample("still1.jpg")] * 3 + ["no.jpg"] * 20
        for options in [[], ["--json"], ["--thumbnails", "small"]]:
            expected = run("analyze", *files, *options, "--jobs", "1")
            self.assertEqual(expected.returncode, 1)
            for jobs in ["2", "7", "256"]:
                result = run("analyze", *files, *options, "--jobs", jobs)
                self.assertEqual((result.returncode, result.stdout, result.stderr),
                                 (1, expected.stdout, expected.stderr))
        self.assertEqual(len(os.listdir("small")), 9)

    def test_a_number_at_a_time_that_makes_no_sense(self):
        for jobs in ["0", "257", "-1", "two", "1.5"]:
            self.assert_refused(run("analyze", sample("still1.jpg"), "--jobs=" + jobs), 2, "--jobs", "1 to 256")

    def test_a_thousand_of_which_fifty_are_broken(self):
        self.fill("many", 950, 50)
        result = run("analyze", "many")
        self.assertEqual(result.returncode, 1)
        described = result.stdout.decode().splitlines()[1:]
        self.assertEqual(len(described), 950)
        self.assertTrue(all("many/good" in line for line in described))
        failed = [line for line in result.stderr.decode().splitlines() if "many/broken" in line]
        self.assertEqual(len(failed), 50)
        for line in failed:
            self.assertRegex(line, r"^nq360: many/broken\d{4}\.jpg: .{10}")
        self.assertIn("950 described, 50 failed", result.stderr.decode())
        one_by_one = run("analyze", "many", "--jobs", "1")
        self.assertEqual((result.stdout, result.stderr), (one_by_one.stdout, one_by_one.stderr))
        lines = objects(run("analyze", "--json", "many").stdout)
        self.assertEqual(len(lines), 1000)
        self.fill("few", 95, 5)
        self.assertEqual([line["movie_path"] for line in lines], sorted(f"many/{name}" for name in os.listdir("many")))
        print(f"peak memory: {self.peak('few')} KiB for 100 files, {self.peak('many')} KiB for 1000", file=sys.stderr)


if __name__ == "__main__":
    resource.setrlimit(resource.RLIMIT_CORE, (0, 0))
    main()
