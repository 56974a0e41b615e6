"""Manual pages and completion: they say what --help says, read without a warning, and complete what a user types.

Usage: help_pages_test.py SONIVO DRIVER SERVICE SOURCE_FOLDER
"""

import os
import re
import shutil
import subprocess
import sys
import unittest

SOURCES = os.path.realpath(sys.argv.pop())
PROGRAMS = [os.path.realpath(each) for each in sys.argv[1:4]]
del sys.argv[1:4]
SHARE = os.path.join(SOURCES, "share")


def read(name):
    with open(os.path.join(SHARE, name), encoding="utf-8") as file:
        return file.read()


def options(*command):
    text = subprocess.run([*command, "--help"], capture_output=True, text=True, check=True).stdout
    return set(re.findall(r"^  (?:-\w,)?(--[a-z-]+)", text, re.MULTILINE))


def complete(line):
    """What is offered for the last word of the line."""
    words = line.split(" ")
    script = (f'. "{SHARE}/bash-completion/sonivo"\n'
              'COMP_WORDS=("$@") COMP_CWORD=$(($# - 1))\n'
              '_sonivo sonivo && printf "%s\\n" "${COMPREPLY[@]}"')
    result = subprocess.run(["bash", "-c", script, "bash", *words], capture_output=True, text=True, cwd=SHARE)
    assert not result.stderr, result.stderr
    return result.stdout.split()


class ManualPages(unittest.TestCase):
    def test_that_of_sonivo_and_its_completion_are_what_the_help_says(self):
        result = subprocess.run([sys.executable, os.path.join(SOURCES, "tools/help-pages"), PROGRAMS[0], "--check"],
                                capture_output=True, text=True)
        self.assertEqual((result.returncode, result.stderr), (0, ""))

    def test_those_of_the_daemons_name_the_options_that_there_are_and_no_other(self):
        for program in PROGRAMS[1:]:
            page = re.sub(r"\\f.", "", read(f"man/{os.path.basename(program)}.8")).replace("\\-", "-")
            section = page.split(".SH OPTIONS")[1].split(".SH ")[0]
            named = set(re.findall(r"(?<![\w-])--[a-z]+(?:-[a-z]+)*", section))
            self.assertEqual(named, options(program), program)

    @unittest.skipUnless(shutil.which("man"), "there is no man here")
    def test_all_read_without_a_warning(self):
        for name in sorted(os.listdir(os.path.join(SHARE, "man"))):
            result = subprocess.run(["man", "-l", "--warnings=w", os.path.join(SHARE, "man", name)],
                                    capture_output=True, text=True, env=dict(os.environ, MANWIDTH="100", LC_ALL="C.UTF-8"))
            self.assertEqual(result.returncode, 0, result.stderr)
            self.assertEqual(result.stderr, "", name)
            self.assertIn(name.split(".")[0], result.stdout)


class Completion(unittest.TestCase):
    def test_offers_commands_and_their_commands(self):
        self.assertEqual(complete("sonivo en"), ["enhance", "enroll"])
        self.assertEqual(complete("sonivo model "), ["-h", "--help", "build", "info", "unpack"])

    def test_offers_the_options_of_a_command_wherever_they_are_typed(self):
        self.assertEqual(complete("sonivo relay in.wav out.wav --re"), ["--render", "--realtime"])
        self.assertEqual(complete("sonivo nn run --c"), ["--chunk"])

    def test_offers_the_values_of_options_and_arguments(self):
        self.assertEqual(complete("sonivo relay --chain "), ["none", "keycancel", "beamforming", "ai"])
        self.assertEqual(complete("sonivo classic key"), ["keycancel"])
        self.assertEqual(complete("sonivo model build sp"), ["spkenc"])
        self.assertEqual(complete("sonivo settings set speaker"), ["speaker-mode"])
        self.assertEqual(complete("sonivo relay --strength "), [])

    def test_offers_files_where_one_is_wanted(self):
        self.assertEqual(complete("sonivo nn info ma"), ["man"])
        self.assertEqual(complete("sonivo enroll --voice ma"), ["man"])
        self.assertEqual(complete("sonivo enroll ma"), [])


if __name__ == "__main__":
    unittest.main()
