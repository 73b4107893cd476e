"""nq360 match"""
import json
import os
import re
import subprocess

from command import SAMPLE, CommandTest, gray, main, run, sample


def options_of(text):
    """A proposal's options: their names, and their numbers (0 for a plane that is left alone)."""
    words = text.split()
    return {name: [0 if part == "-" else float(part) for part in value.split(",")]
            for name, value in zip(words[::2], words[1::2])}


def seam_step(path):
    """The step of luma at the seam of a panorama of two pictures, measured apart from the command."""
    rows = gray(path, 1440, 720)
    # The seam is the middle row.
    steps = sorted(below - above for above, below in zip(rows[355], rows[365]))
    middle = steps[360:1080]
    return sum(middle) / len(middle)


class Match(CommandTest):
    def proposal(self, *arguments, status=0):
        result = run("match", *arguments)
        self.assertEqual(result.returncode, status, result.stderr)
        return options_of(result.stdout.decode()), result.stderr.decode()

    def assert_closes(self, proposal, difference, delta=0):
        """What is added to lens 1 more than to lens 2 is what lens 2 had more."""
        for one, two, known in zip(proposal["--correct1"], proposal["--correct2"], difference):
            self.assertLessEqual(abs(one - two - known), delta)
            self.assertLessEqual(abs(one + two), 1)  # half on either lens

    def assert_falls(self, text, at_least=80):
        self.assertGreaterEqual(int(re.search(r"falls by (\d+) %", text)[1]), at_least)

    def test_finds_a_known_difference(self):
        proposal, text = self.proposal(sample("different1.jpg"), sample("different2.jpg"))
        self.assertEqual(set(proposal), {"--correct1", "--correct2"})
        self.assert_closes(proposal, [12, -6, 8])
        self.assert_falls(text)

    def test_finds_a_factor_and_a_turn(self):
        subprocess.run([SAMPLE, "still", "a.jpg", "b.jpg", "--size", "1440", "--factor", "1.35", "--turn2", "2"],
                       check=True)
        proposal, text = self.proposal("a.jpg", "b.jpg")
        self.assertEqual(set(proposal), {"--turn2", "--gain2"})
        self.assertAlmostEqual(proposal["--turn2"][0], 2, delta=0.1)
        for factor in proposal["--gain2"]:
            self.assertAlmostEqual(1 / factor, 1.35, delta=0.04)
        self.assertRegex(text, r"turned by 2(\.\d+)? degrees against lens 1")
        self.assertRegex(text, r"brighter by a factor of 1\.3\d")
        self.assert_falls(text)
        # What is there already stays, and what is proposed goes beside it.
        again = {name: value for name, value in self.proposal("a.jpg", "b.jpg", "--turn1", "3", "--turn2", "5")[0].items()
                 if name.startswith("--turn")}
        self.assertEqual(again["--turn1"], [3])
        self.assertAlmostEqual(again["--turn2"][0], 5, delta=0.1)

    def test_in_json(self):
        result = run("match", "--json", sample("different1.jpg"), sample("different2.jpg"))
        self.assert_done(result)
        self.assertEqual(result.stderr, b"")
        (line,) = result.stdout.splitlines()
        found = json.loads(line)
        self.assertEqual([a - b for a, b in zip(found["correct1"], found["correct2"])], [12, -6, 8])
        self.assertEqual((found["turn"], found["warning"]), (0, ""))

    def test_halves_that_do_not_belong_together_are_told(self):
        self.assertIn("both halves", self.proposal(sample("still1.jpg"), sample("still1.jpg"), status=1)[1])
        result = run("export", sample("still1.jpg"), sample("still1.jpg"), "out.jpg", "--match")
        self.assert_refused(result, 1, "both halves", "--match cannot be used here")
        self.assertEqual(os.listdir("."), [])

    def test_an_export_takes_what_is_found(self):
        lenses = [sample("different1.jpg"), sample("different2.jpg")]
        result = run("export", *lenses, "matched.jpg", "--match", "--size", "720x360")
        self.assert_done(result)
        self.assertIn(b"Matched: --correct1 6,-3,4 --correct2 -6,3,-4", result.stderr)
        self.assert_done(run("export", *lenses, "typed.jpg", "--size", "720x360", "--correct1", "6,-3,4", "--correct2",
                             "-6,3,-4"))
        with open("matched.jpg", "rb") as matched, open("typed.jpg", "rb") as typed:
            self.assertEqual(matched.read(), typed.read())

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
        self.assertEqual((proposal["--turn1"], proposal["--turn2"]), ([20], [-35]))
        self.assert_closes(proposal, [-9, 4, -5])
        self.assert_falls(text)

    def test_finds_it_in_movies_at_a_time(self):
        proposal, text = self.proposal(sample("movie1.mov"), sample("movie2.mov"), "--start", "0.5")
        self.assert_closes(proposal, [10, 0, -6])
        self.assert_falls(text)

    def test_leaves_lenses_alone_that_meet(self):
        result = run("match", sample("still1.jpg"), sample("still2.jpg"))
        self.assert_done(result)
        self.assertEqual(result.stdout, b"\n")
        self.assertIn(b"meet already", result.stderr)

    def test_finds_it_where_the_pictures_end_at_the_seam(self):
        # Black from 90 degrees on, so that the lenses have nothing in common.
        inside = "lte(hypot({0}*X-720,{0}*Y-720),675.5)"
        for lens in (1, 2):
            planes = [f"lum='if({inside.format(1)},lum(X,Y),0)'", f"cb='if({inside.format(2)},cb(X,Y),128)'",
                      f"cr='if({inside.format(2)},cr(X,Y),128)'"]
            subprocess.run(["ffmpeg", "-v", "error", "-i", sample(f"different{lens}.jpg"), "-vf",
                            "geq=" + ":".join(planes), "-q:v", "2", f"{lens}.jpg"], check=True)
        result = run("match", "1.jpg", "2.jpg")
        self.assert_closes(options_of(result.stdout.decode()), [12, -6, 8], delta=1)

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
