"""nq360 audio and nq360 space"""
import json
import os
import re
import shutil
import subprocess
import wave

from command import SAMPLE, CommandTest, main, run, sample


class Audio(CommandTest):
    def test_writes_the_sound(self):
        result = run("audio", sample("movie1.mov"), "out.wav")
        self.assert_done(result)
        self.assertIn(b"out.wav: the sound of", result.stdout)
        with wave.open("out.wav") as sound:
            self.assertEqual((sound.getnchannels(), sound.getsampwidth()), (2, 2))
            self.assertAlmostEqual(sound.getnframes() / sound.getframerate(), 1.0, delta=0.1)

    def test_counts_no_more_than_there_are(self):
        # The 9 packets that are announced for these are 10 in the end.
        subprocess.run([SAMPLE, "movie", "a.mov", "b.mov", "--size", "64", "--frames", "6"], check=True)
        result = run("audio", "a.mov", "out.wav")
        self.assert_done(result)
        counts = re.findall(r"(\d+)/(\d+) packets", result.stderr.decode())
        self.assertTrue(counts)
        for done, total in counts:
            self.assertLessEqual(int(done), int(total))

    def test_does_not_overwrite(self):
        with open("out.wav", "w", encoding="ascii") as file:
            file.write("precious")
        self.assert_refused(run("audio", sample("movie1.mov"), "out.wav"), 1, "out.wav: exists already", "--force")
        self.assertEqual(os.path.getsize("out.wav"), 8)
        self.assert_done(run("audio", sample("movie1.mov"), "out.wav", "--force", "--quiet"))

    def test_a_folder_takes_a_name_from_the_movie(self):
        self.assert_done(run("audio", sample("movie1.mov"), "."))
        self.assert_done(run("audio", sample("movie1.mov"), ".", "--aac"))
        self.assertEqual(sorted(os.listdir(".")), ["movie1.m4a", "movie1.wav"])
        codec = subprocess.run(["ffprobe", "-v", "error", "-show_entries", "stream=codec_name", "-of", "csv=p=0",
                                "movie1.m4a"], capture_output=True, check=True).stdout.decode().split()
        self.assertEqual(codec, ["aac"])

    def test_never_waits_for_a_pipe(self):
        os.mkfifo("pipe.wav")
        os.mkfifo("pipe.mov")
        self.assert_refused(run("audio", sample("movie1.mov"), "pipe.wav", "-f"), 1, "pipe.wav: is a pipe")
        self.assert_refused(run("audio", "pipe.mov", "out.wav"), 1, "pipe.mov: is a pipe")
        self.assert_refused(run("audio", ".", "out.wav"), 1, ".: is a folder; name the movie in it")

    def test_a_failure_leaves_what_was_there(self):
        with open("out.txt", "w", encoding="ascii") as file:
            file.write("precious")
        self.assert_refused(run("audio", sample("movie1.mov"), "out.txt", "-f"), 1, "out.txt: the sound cannot")
        with open("out.txt", encoding="ascii") as file:
            self.assertEqual(file.read(), "precious")
        self.assertEqual(os.listdir("."), ["out.txt"])

    def test_messages_name_the_file(self):
        self.assert_refused(run("audio", sample("still1.jpg"), "out.wav"), 1, "still1.jpg: has no sound")
        self.assert_refused(run("audio", "no.mov", "out.wav"), 1, "no.mov: there is no such file")
        self.assert_refused(run("audio", sample("movie1.mov"), "no/out.wav"), 1, "no/out.wav: its folder does not")
        self.assert_refused(run("audio", sample("movie1.mov"), sample("movie1.mov"), "-f"), 1, "is an input itself")
        self.assert_refused(run("audio", sample("movie1.mov"), "out.txt"), 1, "out.txt: the sound cannot", ".wav")
        self.assertEqual(os.listdir("."), [])


class Space(CommandTest):
    def test_tells_what_the_system_tells(self):
        result = run("space", "--bytes", ".")
        self.assert_done(result)
        free = shutil.disk_usage(".").free
        self.assertLess(abs(int(result.stdout) - free), 1 << 30)  # others write meanwhile
        self.assertTrue(re.fullmatch(r"[0-9.]+ [KMGT]iB free \(\d+ bytes\)\n", run("space", ".").stdout.decode()))

    def test_in_json(self):
        result = run("space", "--json", ".")
        self.assert_done(result)
        answer = json.loads(result.stdout)
        self.assertEqual((list(answer), answer["path"]), (["path", "free"], "."))
        self.assertLess(abs(answer["free"] - shutil.disk_usage(".").free), 1 << 30)

    def test_asks_the_folder_of_a_file_that_is_to_be(self):
        self.assert_done(run("space", "file-to-be.mov"))
        self.assert_refused(run("space", "no/folder/file.mov"), 1, "no/folder/file.mov", "does the folder exist?")


if __name__ == "__main__":
    main()
