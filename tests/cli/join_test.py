"""nq360 export --part and nq360 join: a movie that several machines make"""
import filecmp
import os
import subprocess

from command import SAMPLE, CommandTest, main, run


class Join(CommandTest):
    def make_movie(self, frames):
        self.movie = ["lens 1.mov", "lens 2.mov"]
        subprocess.run([SAMPLE, "movie", *self.movie, "--size", "1440", "--frames", str(frames), "--sound", "both",
                        "--key-frames", "15"], check=True)

    def export(self, output, *options):
        done = run("export", *self.movie, output, "--size", "320x160", "--yaw", "3", *options)
        self.assert_done(done)
        return done.stdout.decode()

    def test_parts_joined_are_the_movie_of_one_machine(self):
        self.make_movie(125)  # a part of the length that users get, and a bit of another one
        options = ("--sound", "2", "--web")
        self.export("whole.mp4", "--jobs", "2", *options)
        parts = [f"{number} of 2.part" for number in (1, 2)]
        for number, part in enumerate(parts, 1):
            told = self.export(part, "--part", f"{number}/2", *options)
            self.assertRegex(told, rf"{part}: part {number} of 2, in [0-9.]+ s\n")
        joined = run("join", *parts, "joined.mp4")
        self.assert_done(joined)
        self.assertRegex(joined.stdout.decode(), r"joined.mp4: 2 parts joined, in [0-9.]+ s\n")
        self.assertTrue(filecmp.cmp("whole.mp4", "joined.mp4", shallow=False))

    def test_wrong_parts_are_named(self):
        self.make_movie(2)
        for number in (1, 2):
            self.export(f"{number}.part", "--part", f"{number}/2")
        self.export("other.part", "--part", "2/2", "--roll", "1")
        for parts, text in [
            (["1.part"], "1.part: of its 2 parts these are missing: 2\n"),
            (["1.part", "2.part", "1.part"], "1.part: part 1 is given twice\n"),
            (["1.part", "other.part"],
             "other.part: it is of another movie than the first one given: roll is 1, not 0\n"),
            (["1.part", self.movie[0]], "it is no part of a movie\n"),
            (["1.part", "none.part"], "none.part: there is no such file\n"),
        ]:
            with self.subTest(parts=parts):
                self.assert_refused(run("join", *parts, "out.mov"), 1, text)
                self.assertFalse(os.path.exists("out.mov"))

    def test_names_are_looked_at_first(self):
        self.make_movie(2)
        self.export("1.part", "--part", "1/1")
        for arguments, status, text in [
            (("1.part", "out.txt"), 2, "out.txt: is to be the movie"),
            (("1.part", "1.part"), 1, "1.part: is an input itself"),
            (("1.part", "none/out.mov"), 1, "its folder does not exist"),
            (("1.part",), 2, "PART"),
        ]:
            with self.subTest(arguments=arguments):
                self.assert_refused(run("join", *arguments), status, text)
        for part in ("0/2", "3/2", "2", "/", "a/b", "1/100001", "-1/3", "1/2x"):
            with self.subTest(part=part):
                self.assert_refused(run("export", *self.movie, "x.part", "--part", part), 2, "such as 2/7")
        self.assert_refused(run("export", *self.movie, "x.mov", "--part", "1/2"), 2, "let its name end in .part")


if __name__ == "__main__":
    main()
