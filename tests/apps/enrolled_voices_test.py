"""`sonivo enroll` with the models that belong to the program and two made-up voices: each stays in its own model and goes
in the other's.

Usage: enrolled_voices_test.py SONIVO
"""

import os
import subprocess
import sys
import tempfile
import unittest
import wave

import numpy as np

from made_up_talk import LEAD, RATE, enhanced, level_db, talk

SONIVO = os.path.abspath(sys.argv[1])
MODELS = os.path.join(os.path.dirname(SONIVO), "..", "share", "sonivo", "models")
BASE = os.path.join(MODELS, "model_tsse_streaming_rtf0.10_v2.bin")
ENCODER = os.path.join(MODELS, "model_spkenc_rtf0.10_v2.bin")
VOICES = {"low": {"pitches": (90, 130), "formants": 1.0}, "high": {"pitches": (185, 250), "formants": 1.15}}


def said(voice, number, seconds):
    return talk(seconds, np.random.default_rng([ord(voice[0]), number]), **VOICES[voice])[LEAD:]


def write_recording(path, x):
    """At 48 kHz: straight lines between the samples."""
    at = np.arange(3 * len(x)) / 3
    samples = np.interp(at, np.arange(len(x)), x)
    with wave.open(path, "wb") as file:
        file.setparams((1, 2, 3 * RATE, len(samples), "NONE", ""))
        file.writeframes(np.round(samples * 32768).astype("<i2").tobytes())


class EnrolledVoices(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.models = {voice: cls.enrolled(voice, number) for number, voice in enumerate(VOICES)}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def enrolled(cls, voice, number):
        recording, model = (os.path.join(cls.folder.name, voice + ending) for ending in (".wav", ".bin"))
        write_recording(recording, said(voice, number, 5))
        run = subprocess.run([SONIVO, "enroll", "--base", BASE, "--encoder", ENCODER, "--voice", recording, "--out",
                              model], capture_output=True, text=True)
        assert run.returncode == 0 and run.stdout.endswith("fit for use\n"), run.stdout + run.stderr
        return model

    def enhanced(self, model, x):
        return enhanced(SONIVO, model, x, self.folder.name)[0]

    def test_differ_from_each_other_and_from_the_base_model_in_one_layer(self):
        files = []
        for path in (BASE, *self.models.values()):
            with open(path, "rb") as file:
                files.append(np.frombuffer(file.read(), np.uint8))
        self.assertEqual(len({len(data) for data in files}), 1)
        for a, b in ((0, 1), (0, 2), (1, 2)):
            differ = np.flatnonzero(files[a] != files[b])
            self.assertGreater(len(differ), 20)
            layer = bytes(files[a][:differ[0]]).rfind(b"prod1")
            self.assertGreater(layer, 0)
            self.assertLess(differ[0] - layer, 40)
            self.assertLess(differ[-1] - differ[0], 4 * 512)

    def test_stay_in_their_own_model_and_go_in_the_other(self):
        turns = np.concatenate([np.zeros(LEAD), said("low", 2, 3), said("high", 3, 3)])
        turns += 1e-4 * np.random.default_rng(6).standard_normal(len(turns))
        change = LEAD + 3 * RATE
        at = {"low": slice(LEAD, change), "high": slice(change, None)}
        before = self.enhanced(BASE, turns)
        after = {voice: self.enhanced(model, turns) for voice, model in self.models.items()}
        for voice, other in (("low", "high"), ("high", "low")):
            self.assertLess(abs(level_db(after[voice][at[voice]]) - level_db(before[at[voice]])), 1)
            self.assertLess(level_db(after[other][at[voice]]) - level_db(before[at[voice]]), -10)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
