"""The command in a terminal and in pipes: bar, Ctrl-C, colour, closed pipes."""
import os
import resource
import shutil
import signal
import subprocess
import time

from command import COMMAND, CommandTest, Terminal, main, run, sample

MOVIES = [sample("movie1.mov"), sample("movie2.mov")]


class Bar(CommandTest):
    def test_shows_frames_speed_and_time_left(self):
        terminal = Terminal("export", *MOVIES, "out.mp4", "--size", "128x64")
        self.assertEqual(terminal.end(), 0, terminal.text)
        self.assertRegex(terminal.text, rb"  0 % \[(\x1b\[32m\x1b\[0m)?\.+\] 0/30 frames")
        self.assertRegex(terminal.text, rb"\[\x1b\[32m#+\x1b\[0m\.*\] [123]0/30 frames, [0-9.]+/s, 0:\d\d left")
        # The bar is gone in the end, and what was made is told.
        self.assertRegex(terminal.text, rb"\r\x1b\[Kout\.mp4: 128x64, 30 frames, in [0-9.]+ s\r\n$")

    def test_has_no_colour_with_no_color(self):
        terminal = Terminal("export", *MOVIES, "out.mp4", "--size", "128x64", NO_COLOR="1")
        self.assertEqual(terminal.end(), 0, terminal.text)
        self.assertIn(b"0/30 frames", terminal.text)
        self.assertNotRegex(terminal.text, rb"\x1b\[[0-9;]*m")

    def test_is_not_drawn_on_a_terminal_that_cannot(self):
        terminal = Terminal("export", *MOVIES, "out.mp4", "--size", "128x64", TERM="dumb")
        self.assertEqual(terminal.end(), 0, terminal.text)
        self.assertNotIn(b"\x1b", terminal.text)

    def test_quiet_shows_nothing(self):
        terminal = Terminal("export", *MOVIES, "out.mp4", "--size", "128x64", "--quiet")
        self.assertEqual(terminal.end(), 0)
        self.assertEqual(terminal.text, b"")

    def test_a_folder_shows_progress(self):
        os.mkdir("folder")
        for i in range(30):
            os.link(sample("still1.jpg"), f"folder/{i:02}.jpg")
        terminal = Terminal("analyze", "folder")
        self.assertEqual(terminal.end(), 0, terminal.text)
        self.assertIn(b"0/30 files", terminal.text)
        # Rows stand whole on lines of their own, the bar below them.
        self.assertRegex(terminal.text, rb"\x1b\[KJPEG   1440x1440 [^\r\n]*folder/29\.jpg\r\n")

    def test_errors_are_coloured_on_a_terminal_alone(self):
        terminal = Terminal("analyze", "nothing.jpg")
        self.assertEqual(terminal.end(), 1)
        self.assertIn(b"\x1b[1;31mnq360:\x1b[0m nothing.jpg: there is no such file", terminal.text)
        self.assertEqual(run("analyze", "nothing.jpg").stderr, b"nq360: nothing.jpg: there is no such file\n")


class Interrupt(CommandTest):
    def start(self, movies=MOVIES):
        terminal = Terminal("export", *movies, "out.mp4", TMPDIR=self.folder + "/nowhere")
        terminal.read_until(b" 0/")
        return terminal

    def assert_nothing_left(self):
        self.assertEqual(os.listdir("."), [])

    def test_ctrl_c_cancels_and_leaves_nothing(self):
        terminal = self.start()
        terminal.type(b"\x03")
        self.assertEqual(terminal.end(), 130, terminal.text)
        self.assertIn(b"stopping once this frame is made", terminal.text)
        self.assertIn(b"cancelled; nothing is changed", terminal.text)
        self.assert_nothing_left()

    def test_descriptors_of_the_caller_are_left_alone(self):
        highest = min(resource.getrlimit(resource.RLIMIT_NOFILE)[0], 1024) - 1
        def hand_down():
            os.dup2(1, highest)
        result = run("export", *MOVIES, "out.mp4", "--size", "128x64", preexec_fn=hand_down, close_fds=False)
        self.assert_done(result)

    def test_ctrl_c_does_not_wait_for_a_report(self):
        # Of so many frames only every hundredth is reported.
        for movie, long_movie in zip(MOVIES, ["a.mov", "b.mov"]):
            subprocess.run(["ffmpeg", "-v", "error", "-stream_loop", "36", "-i", movie, "-c", "copy", "-an", "-t",
                            "36.6", long_movie], check=True)
        terminal = self.start(movies=["a.mov", "b.mov"])
        terminal.type(b"\x03")
        self.assertEqual(terminal.end(), 130, terminal.text)
        self.assertNotIn(b"100/1", terminal.text)

    def test_a_second_signal_ends_at_once(self):
        terminal = self.start()
        terminal.signal(signal.SIGINT)
        terminal.signal(signal.SIGTERM)
        self.assertIn(terminal.end(), (-signal.SIGTERM, -signal.SIGINT), terminal.text)
        self.assert_nothing_left()

    def test_a_picture_is_there_whole_or_not_at_all(self):
        for delay in (0.02, 0.1, 0.3):
            process = subprocess.Popen([COMMAND, "export", sample("still1.jpg"), sample("still2.jpg"), "out.jpg", "-f",
                                        "--size", "7680x3840"], stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL)
            time.sleep(delay)
            process.send_signal(signal.SIGINT)
            status = process.wait()
            self.assertIn(status, (0, 130, -signal.SIGINT))
            self.assertEqual(os.listdir("."), ["out.jpg"] if status == 0 else [])
            if status == 0:
                os.remove("out.jpg")

    def test_ctrl_c_ends_an_analysis_between_two_files(self):
        os.mkdir("folder")
        for i in range(2000):
            os.link(sample("still1.jpg"), f"folder/{i:04}.jpg")
        terminal = Terminal("analyze", "folder")
        terminal.read_until(b"0000.jpg")
        terminal.type(b"\x03")
        self.assertEqual(terminal.end(), 130, terminal.text[-300:])
        self.assertIn(b"cancelled", terminal.text)
        self.assertNotIn(b"1999.jpg", terminal.text)

    def test_an_ignored_signal_stays_ignored(self):
        # As under nohup.
        result = run("export", *MOVIES, "out.mp4", "--size", "128x64",
                     preexec_fn=lambda: (signal.signal(signal.SIGHUP, signal.SIG_IGN), os.kill(os.getpid(), 1)))
        self.assert_done(result)


class OldOutput(CommandTest):
    """What stood at the output's path, when the job that was to replace it does not end well."""

    def setUp(self):
        super().setUp()
        with open("out.mp4", "wb") as file:
            file.write(b"precious" * 1000)
        os.chmod("out.mp4", 0o640)

    def start(self):
        return subprocess.Popen([COMMAND, "export", *MOVIES, "out.mp4", "-f"], stdout=subprocess.DEVNULL,
                                stderr=subprocess.DEVNULL)

    def assert_is_there(self):
        with open("out.mp4", "rb") as file:
            self.assertEqual(file.read(), b"precious" * 1000)

    def test_is_there_after_a_kill_at_any_moment(self):
        begun = time.monotonic()
        self.assertEqual(self.start().wait(), 0)
        length = time.monotonic() - begun
        self.assertEqual(os.stat("out.mp4").st_mode & 0o777, 0o640)
        with open("out.mp4", "wb") as file:
            file.write(b"precious" * 1000)
        for tenth in range(10):
            process = self.start()
            time.sleep(length * tenth / 12)
            process.kill()
            if process.wait() != 0:
                self.assert_is_there()

    def test_is_there_after_a_cancel_at_any_moment(self):
        for moment in range(4):
            process = self.start()
            time.sleep(0.05 + 0.1 * moment)
            process.send_signal(signal.SIGINT)
            self.assertIn(process.wait(), (130, -signal.SIGINT))
            self.assert_is_there()
            self.assertEqual(os.listdir("."), ["out.mp4"])

    def test_is_there_after_a_failure(self):
        shutil.copy(MOVIES[1], "broken.mov")
        with open("broken.mov", "r+b") as file:  # the second half of its pictures
            file.seek(os.path.getsize("broken.mov") // 2)
            file.write(bytes(os.path.getsize("broken.mov") // 4))
        result = run("export", MOVIES[0], "broken.mov", "out.mp4", "-f")
        self.assertEqual(result.returncode, 1)
        self.assert_is_there()
        self.assertEqual(sorted(os.listdir(".")), ["broken.mov", "out.mp4"])


class Pipes(CommandTest):
    def test_lines_instead_of_a_bar(self):
        result = run("export", *MOVIES, "out.mp4", "--size", "128x64")
        self.assert_done(result)
        self.assertNotIn(b"\r", result.stderr)
        self.assertNotIn(b"\x1b", result.stderr)
        lines = result.stderr.decode().splitlines()
        self.assertEqual(len(lines), 3)
        self.assertRegex(lines[-1], r"^30/30 frames, [0-9.]+/s, 0:00 left$")

    def test_the_log_goes_nowhere_unless_asked_for(self):
        quiet = run("export", *MOVIES, "a.mp4", "--size", "128x64", "--quiet")
        self.assert_done(quiet)
        self.assertEqual(quiet.stdout + quiet.stderr, b"")
        loud = run("export", *MOVIES, "b.mp4", "--size", "128x64", "--verbose")
        self.assert_done(loud)
        self.assertIn(b"[_NQ360_export]", loud.stderr)

    def test_feeds_another_program(self):
        analyze = subprocess.Popen([COMMAND, "analyze", "--json", *MOVIES], stdout=subprocess.PIPE)
        count = subprocess.run(["wc", "-l"], stdin=analyze.stdout, capture_output=True, check=True)
        analyze.stdout.close()
        self.assertEqual((analyze.wait(), int(count.stdout)), (0, 2))

    def test_a_closed_pipe_makes_no_noise(self):
        os.mkdir("folder")
        for i in range(300):
            os.link(sample("still1.jpg"), f"folder/{i:03}.jpg")
        process = subprocess.Popen([COMMAND, "analyze", "--json", "folder"], stdout=subprocess.PIPE,
                                   stderr=subprocess.PIPE)
        self.assertTrue(process.stdout.readline())
        process.stdout.close()
        self.assertEqual(process.stderr.read(), b"")
        process.stderr.close()
        # As every program in a pipe: the shell takes it for no error.
        self.assertEqual(process.wait(), -signal.SIGPIPE)

    def test_an_export_does_not_need_its_readers(self):
        reader, writer = os.pipe()
        process = subprocess.Popen([COMMAND, "export", *MOVIES, "out.mp4", "--size", "128x64"], stderr=writer,
                                   stdout=subprocess.DEVNULL)
        os.close(writer)
        os.close(reader)
        self.assertEqual(process.wait(), 0)
        self.assertTrue(os.path.exists("out.mp4"))

    def test_a_full_disk_behind_the_output_is_told(self):
        with open("/dev/full", "wb") as full:
            result = subprocess.run([COMMAND, "analyze", *MOVIES], stdout=full, stderr=subprocess.PIPE, check=False)
        self.assertEqual(result.returncode, 1)
        self.assertIn(b"standard output cannot be written", result.stderr)


if __name__ == "__main__":
    main()
