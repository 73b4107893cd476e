"""nq360 match"""
import re
import subprocess

from command import SAMPLE, CommandTest, gray, main, run, sample


def offsets(text):
    """The six numbers of a proposal, 0 for a plane that is left alone."""
    found = re.fullmatch(r"--correct1 (\S+) --correct2 (\S+)\n", text)
    return [[0 if part == "-" else int(part) for part in group.split(",")] for group in found.groups()]


def seam_step(path):
    """The step of luma at the seam of a panorama of two pictures, measured apart from the command."""
    rows = gray(path, 1440, 720)
    # The seam is the middle row.
    steps = sorted(below - above for above, below in zip(rows[355], rows[365]))
    middle = steps[360:1080]
    return sum(middle) / len(middle)


class Match(CommandTest):
    def proposal(self, *arguments):
        result = run("match", *arguments)
        self.assert_done(result)
        return offsets(result.stdout.decode()), result.stderr.decode()

    def assert_closes(self, proposal, difference):
        """What is added to lens 1 more than to lens 2 is what lens 2 had more."""
        self.assertEqual([a - b for a, b in zip(*proposal)], difference)
        for one, two in zip(*proposal):
            self.assertLessEqual(abs(one + two), 1)  # half on either lens

    def assert_falls(self, text, at_least=80):
        self.assertGreaterEqual(int(re.search(r"falls by (\d+) %", text)[1]), at_least)

    def test_finds_a_known_difference(self):
        proposal, text = self.proposal(sample("different1.jpg"), sample("different2.jpg"))
        self.assert_closes(proposal, [12, -6, 8])
        self.assert_falls(text)

    def test_the_step_of_the_panorama_falls(self):
        lenses = [sample("different1.jpg"), sample("different2.jpg")]
        result = run("match", "--quiet", *lenses)
        self.assertEqual(result.stderr, b"")
        self.assert_done(run("export", *lenses, "before.jpg", "--size", "1440x720"))
        self.assert_done(run("export", *lenses, "after.jpg", "--size", "1440x720", *result.stdout.decode().split()))
        self.assert_done(run("export", sample("still1.jpg"), sample("still2.jpg"), "ideal.jpg", "--size", "1440x720"))
        ideal = seam_step("ideal.jpg")  # what the scene itself changes between these rows
        before, after = seam_step("before.jpg") - ideal, seam_step("after.jpg") - ideal
        self.assertGreater(before, 10)
        self.assertLess(abs(after), 0.2 * before)

    def test_finds_it_in_pictures_that_lie_turned(self):
        proposal, text = self.proposal(sample("turned1.jpg"), sample("turned2.jpg"), "--turn1", "20", "--turn2=-35")
        self.assert_closes(proposal, [-9, 4, -5])
        self.assert_falls(text)

    def test_finds_it_in_movies_at_a_time(self):
        proposal, text = self.proposal(sample("movie1.mov"), sample("movie2.mov"), "--start", "0.5")
        self.assert_closes(proposal, [10, 0, -6])
        self.assert_falls(text)

    def test_leaves_lenses_alone_that_meet(self):
        result = run("match", sample("still1.jpg"), sample("still2.jpg"))
        self.assert_done(result)
        self.assertEqual(result.stdout, b"--correct1 -,-,- --correct2 -,-,-\n")
        self.assertIn(b"meet already", result.stderr)

    def test_finds_it_where_the_pictures_end_at_the_seam(self):
        # Black from 90 degrees on, so that the lenses have nothing in common.
        inside = "lte(hypot({0}*X-720,{0}*Y-720),675.5)"
        for lens in (1, 2):
            planes = [f"lum='if({inside.format(1)},lum(X,Y),0)'", f"cb='if({inside.format(2)},cb(X,Y),128)'",
                      f"cr='if({inside.format(2)},cr(X,Y),128)'"]
            subprocess.run(["ffmpeg", "-v", "error", "-i", sample(f"different{lens}.jpg"), "-vf",
                            "geq=" + ":".join(planes), "-q:v", "2", f"{lens}.jpg"], check=True)
        proposal, text = self.proposal("1.jpg", "2.jpg")
        for found, known in zip([a - b for a, b in zip(*proposal)], [12, -6, 8]):
            self.assertLessEqual(abs(found - known), 1)
        self.assert_falls(text)

    def test_a_dark_shot_is_told(self):
        subprocess.run(["ffmpeg", "-v", "error", "-f", "lavfi", "-i", "color=black:s=1440x1440", "-frames:v", "1",
                        "-pix_fmt", "yuvj420p", "dark.jpg"], check=True)
        self.assert_refused(run("match", "dark.jpg", "dark.jpg"), 1, "too little of the seam")

    def test_files_that_do_not_serve_are_named(self):
        subprocess.run([SAMPLE, "still", "a.jpg", "b.jpg", "--size", "1936"], check=True)
        self.assert_refused(run("match", sample("still1.jpg"), "no.jpg"), 1, "no.jpg: there is no such file")
        self.assert_refused(run("match", sample("still1.jpg"), "b.jpg"), 1, "b.jpg: not of the size", "1936x1936")
        self.assert_refused(run("match", sample("still1.jpg")), 2, "LENS2 is required")


if __name__ == "__main__":
    main()
