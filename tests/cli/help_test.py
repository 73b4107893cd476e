"""The help text, and what repeats it: the completions of the shells and the manual page."""
import os
import re
import shutil
import subprocess
import unittest

from command import COMMAND, SOURCE, CommandTest, main, run

COMMANDS = ["analyze", "export", "batch", "join", "match", "audio", "space", "view"]


def help_of(*command):
    return run(*command, "--help").stdout.decode()


def options_of(*command):
    """The options that the help names, short and long."""
    found = set()
    for line in help_of(*command).splitlines():
        match = re.match(r"  (?:(-\w), |    )(--[\w-]+)", line)
        if match:
            found |= {name for name in match.groups() if name}
    return found


def completion(name):
    with open(os.path.join(SOURCE, "cli", "completions", name), encoding="utf-8") as file:
        return file.read().replace("\\\n", " ")


class Help(CommandTest):
    def test_goes_to_the_standard_output(self):
        for command in [[]] + [[name] for name in COMMANDS]:
            for flag in ("--help", "-h"):
                result = run(*command, flag)
                self.assert_done(result)
                self.assertEqual(result.stderr, b"")
                self.assertTrue(result.stdout.startswith(" ".join(["Usage: nq360"] + command).encode()))

    def test_fits_a_terminal(self):
        for command in [[]] + [[name] for name in COMMANDS]:
            for line in help_of(*command).splitlines():
                self.assertLessEqual(len(line), 80, line)

    def test_names_every_command(self):
        self.assertEqual(re.findall(r"^  (\w+)  ", help_of(), re.M), COMMANDS)

    def test_version(self):
        result = run("--version")
        self.assert_done(result)
        self.assertRegex(result.stdout, rb"^nq360 \d+\.\d+\.\d+\n$")

    def test_is_not_done_where_it_cannot_be_written(self):
        for arguments in [["--help"], ["export", "--help"], ["--version"]]:
            with open("/dev/full", "wb") as full:
                result = subprocess.run([COMMAND, *arguments], stdout=full, stderr=subprocess.PIPE, check=False)
            self.assertEqual(result.returncode, 1)
            self.assertIn(b"standard output cannot be written", result.stderr)

    def test_wrong_use_is_told(self):
        cases = [
            ([], "a command is missing", "Try 'nq360 --help'"),
            (["stitch"], "there is no command 'stitch'", "Try 'nq360 --help'"),
            (["--bogus"], "there is no option '--bogus'", "Try 'nq360 --help'"),
            (["analyze"], "FILE is required", "Try 'nq360 analyze --help'"),
            (["analyze", "a.jpg", "--width", "100"], "--thumbnails", "Try 'nq360 analyze --help'"),
            (["analyze", "a.jpg", "--thumbnails", "x", "--width", "0"], "--width", "Try 'nq360 analyze --help'"),
            (["space"], "PATH is required", "Try 'nq360 space --help'"),
            (["space", "a", "b", "c"], "'b' is one name too many", "Try 'nq360 space --help'"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "-t", "90"], "there is no option '-t'"),
            (["export", "-t", "90", "a.jpg", "b.jpg", "o.jpg"], "there is no option '-t'"),
            (["export", "a.jpg", "-t", "o.jpg"], "there is no option '-t'"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "--siz", "2x1"], "there is no option '--siz'"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "-fx"], "there is no option '-x'"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "--size", "2x1", "--size", "4x2"], "--size is given twice"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "--size"], "--size needs a value, WxH"),
            (["export", "a.jpg", "b.jpg", "o.jpg", "--force=no"], "--force takes no value"),
            (["analyze", "a.jpg", "--json=maybe"], "--json takes no value"),
        ]
        for arguments, *texts in cases:
            with self.subTest(arguments=arguments):
                self.assert_refused(run(*arguments), 2, *texts)


class Completions(CommandTest):
    def test_bash_offers_what_the_help_names(self):
        script = ('source "$1"; COMP_WORDS=("${@:2}"); COMP_CWORD=$(($# - 2)); _nq360; '
                  'printf "%s\\n" "${COMPREPLY[@]}"')
        path = os.path.join(SOURCE, "cli", "completions", "nq360.bash")

        def offered(*words):
            return set(subprocess.run(["bash", "-c", script, "bash", path, "nq360", *words], capture_output=True,
                                      check=True).stdout.decode().split())
        for command in COMMANDS:
            self.assertEqual(offered(command, "-"), options_of(command))
        self.assertEqual(offered(""), set(COMMANDS) | options_of())
        self.assertEqual(offered("export", "--sound", ""), {"1", "2", "none"})
        self.assertEqual(offered("export", "--pre"), {"--preview"})
        os.mkdir("with blank")
        self.assertEqual(offered("analyze", "--thumbnails", "wi"), {"with", "blank"})

    def test_zsh_offers_what_the_help_names(self):
        text = completion("_nq360")
        for command in COMMANDS:
            part = re.search(rf"^ +{command}\)$(.*?)^ +;;", text, re.M | re.S)[1]
            offered = re.findall(r"'(?:\([- \w]+\))?(--[\w-]+)\[|\{(-\w),(--\w+)\}", part)
            self.assertEqual({name for names in offered for name in names if name}, options_of(command))
            self.assertIn(f"'{command}:", text)

    def test_fish_offers_what_the_help_names(self):
        offered = {command: {"-h", "--help"} for command in COMMANDS}
        for line in completion("nq360.fish").splitlines():
            seen = re.search(r"'__fish_seen_subcommand_from ([\w ]+)'", line)
            for command in seen[1].split() if seen else []:
                offered[command] |= {"--" + name for name in re.findall(r" -l ([\w-]+)", line)}
                offered[command] |= {"-" + name for name in re.findall(r" -s (\w)\b", line)}
        for command in COMMANDS:
            self.assertEqual(offered[command], options_of(command))

    def test_the_shells_can_read_them(self):
        for shell, name in [("bash", "nq360.bash"), ("zsh", "_nq360"), ("fish", "nq360.fish")]:
            if shutil.which(shell):
                subprocess.run([shell, "-n", os.path.join(SOURCE, "cli", "completions", name)], check=True)

    @unittest.skipUnless(shutil.which("fish"), "there is no fish here")
    def test_fish_itself(self):
        script = "source $argv[1]; complete -C'nq360 export --'"
        path = os.path.join(SOURCE, "cli", "completions", "nq360.fish")
        offered = subprocess.run(["fish", "-N", "-c", script, path], capture_output=True, check=True).stdout.decode()
        long_names = {name for name in options_of("export") if name.startswith("--")}
        self.assertEqual({line.split()[0] for line in offered.splitlines()}, long_names)


class ManualPage(CommandTest):
    def test_has_every_command_and_option(self):
        with open(os.path.join(SOURCE, "docs", "nq360.1"), encoding="utf-8") as file:
            page = file.read().replace("\\-", "-").replace("\\fB", "").replace("\\fR", "")
        for command in COMMANDS:
            part = page[page.index(f'.SH "NQ360 {command.upper()}"'):]
            part = part[:part.index("\n.SH ", 1)]
            for option in options_of(command):
                self.assertRegex(part, rf"(?m)(^|, ){option}\b")


if __name__ == "__main__":
    main()
