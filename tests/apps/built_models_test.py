"""The nine models of tools/build-models: what they are made of, and what the voice of one of two talkers does in them.

Usage: built_models_test.py SONIVO TOOLS_FOLDER
"""

import os
import struct
import subprocess
import sys
import tempfile
import unittest

import numpy as np

SONIVO = os.path.abspath(sys.argv[1])
TOOLS = os.path.abspath(sys.argv[2])
sys.path.insert(0, TOOLS)
from made_up_talk import LEAD, RATE, enhanced, in_noise, level_db, segmental_snr, si_sdr, talk  # noqa: E402
from model_container import Model  # noqa: E402

FACTORS = ("0.5", "0.25", "0.10")  # of the rows, the largest models first
VOICES = {"low": {"pitches": (90, 130), "formants": 1.0}, "high": {"pitches": (185, 250), "formants": 1.15}}


def build(folder):
    return subprocess.run([sys.executable, os.path.join(TOOLS, "build-models"), folder], capture_output=True, text=True)


def contents(path):
    with open(path, "rb") as file:
        return file.read()


def plain(factor):
    return f"model_se_streaming_RTF{factor}_v2.bin"


def target(factor):
    return f"model_tsse_streaming_rtf{factor}_v2.bin"


def encoder(factor):
    return f"model_spkenc_rtf{factor}_v2.bin"


def enrolled(model, embedding):
    """The bytes of a target-speaker model with this in place of the vector of its layer prod1."""
    head = struct.pack("<Q5sQ4s4sqq", 5, b"prod1", 4, b"Prod", b"Prod", len(embedding), 1)
    before, found, behind = model.partition(head)
    assert found and head not in behind
    return before + head + embedding.astype("<f4").tobytes() + behind[4 * len(embedding):]


def likeness(a, b):
    return a @ b / np.linalg.norm(a) / np.linalg.norm(b)


class BuiltModels(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        cls.models = os.path.join(cls.folder.name, "share", "models")
        result = build(cls.models)
        assert result.returncode == 0, result.stderr
        # Each voice says four things. What it is enrolled with is the first.
        cls.said = {voice: [talk(3, np.random.default_rng([ord(voice[0]), k]), **how)[LEAD:] for k in range(4)]
                    for voice, how in VOICES.items()}
        cls.embeddings = {factor: {voice: cls.embedding(factor, said[0]) for voice, said in cls.said.items()}
                          for factor in FACTORS}

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def path(cls, *names):
        return os.path.join(cls.folder.name, *names)

    @classmethod
    def embedding(cls, factor, x):
        """What enrolment makes of the samples: the mean over the columns that the encoder gives."""
        network, source, result = cls.path("encoder.nn"), cls.path("x.tsv"), cls.path("y.tsv")
        with open(network, "wb") as file:
            file.write(Model.read(os.path.join(cls.models, encoder(factor))).network)
        np.savetxt(source, x[None], fmt="%.9g", delimiter="\t")
        subprocess.run([SONIVO, "nn", "run", network, "--in", source, "--out", result], check=True)
        return np.loadtxt(result, delimiter="\t", ndmin=2).mean(axis=1)

    def enhanced(self, model, x):
        return enhanced(SONIVO, model, x, self.folder.name)[0]

    def with_voice(self, factor, voice):
        path = self.path("enrolled.bin")
        model = contents(os.path.join(self.models, target(factor)))
        with open(path, "wb") as file:
            file.write(enrolled(model, self.embeddings[factor][voice]))
        return path

    def test_are_nine_that_load_and_come_out_the_same_each_time(self):
        names = {kind(factor) for factor in FACTORS for kind in (plain, target, encoder)}
        files = {name: contents(os.path.join(self.models, name)) for name in os.listdir(self.models)}
        self.assertEqual(set(files), names)
        for name, data in files.items():
            self.assertLess(len(data), 20e6)
            info = subprocess.run([SONIVO, "model", "info", os.path.join(self.models, name)], check=True,
                                  capture_output=True, text=True).stdout
            self.assertIn("speaker encoder" if "spkenc" in name else "speech enhancement", info)
        for kind in (plain, target, encoder):
            sizes = [len(files[kind(factor)]) for factor in FACTORS]
            self.assertEqual(sizes, sorted(sizes, reverse=True))
        self.assertEqual(build(self.models).returncode, 0)
        self.assertEqual(set(os.listdir(self.models)), names)
        for name, data in files.items():
            self.assertEqual(contents(os.path.join(self.models, name)), data)

    def test_leave_nothing_where_they_cannot_be_written(self):
        taken = self.path("taken")
        with open(taken, "w"):
            pass
        result = build(taken)
        self.assertEqual((result.returncode, result.stdout), (1, ""))
        self.assertEqual(result.stderr, f"error: cannot write '{taken}': File exists\n")

    def test_a_target_speaker_model_without_a_voice_is_the_plain_one(self):
        clean = np.concatenate([np.zeros(LEAD), self.said["high"][1], self.said["low"][1]])
        noisy = in_noise(clean, np.random.default_rng(4).standard_normal(len(clean)), 10)
        for factor in FACTORS:
            y = self.enhanced(os.path.join(self.models, plain(factor)), noisy)
            np.testing.assert_array_equal(self.enhanced(os.path.join(self.models, target(factor)), noisy), y)
            self.assertGreater(segmental_snr(clean, y) - segmental_snr(clean, noisy), 3)

    def test_an_embedding_tells_who_speaks_not_what_or_how_loud(self):
        rng = np.random.default_rng(5)
        for factor in FACTORS:
            for voice, other in (("low", "high"), ("high", "low")):
                first = self.embeddings[factor][voice]
                for said, level, pause in ((1, 1, 4 * RATE), (2, 0.03, 0)):
                    x = level * np.append(self.said[voice][said], np.zeros(pause))
                    again = self.embedding(factor, x + 3e-5 * rng.standard_normal(len(x)))
                    self.assertGreater(likeness(first, again), 0.6)
                    self.assertLess(likeness(self.embeddings[factor][other], again), 0.2)

    def test_the_enrolled_voice_stays_and_another_goes(self):
        turns = np.concatenate([np.zeros(LEAD), self.said["low"][1], self.said["high"][1]])
        turns += 1e-4 * np.random.default_rng(6).standard_normal(len(turns))
        change = LEAD + len(self.said["low"][1])
        at = {"low": slice(LEAD, change), "high": slice(change, None)}
        for factor in FACTORS:
            before = self.enhanced(os.path.join(self.models, target(factor)), turns)
            for voice, other in (("low", "high"), ("high", "low")):
                after = self.enhanced(self.with_voice(factor, voice), turns)
                self.assertLess(abs(level_db(after[at[voice]]) - level_db(before[at[voice]])), 0.3)
                self.assertLess(level_db(after[at[other]]) - level_db(before[at[other]]), -18)

    def test_a_hum_is_no_voice(self):
        t = np.arange(4 * RATE) / RATE
        hum = 0.01 * sum(np.cos(2 * np.pi * 120 * k * t + k * k) / k for k in range(1, 12))
        late = slice(2 * RATE, None)  # it has been heard for longer than levels are kept
        for factor in FACTORS:
            before = self.enhanced(os.path.join(self.models, target(factor)), hum)
            after = self.enhanced(self.with_voice(factor, "high"), hum)
            self.assertLess(abs(level_db(after[late]) - level_db(before[late])), 0.1)

    def test_of_two_at_once_the_enrolled_one_comes_through_more(self):
        alone = {voice: np.append(np.zeros(LEAD), said[1]) for voice, said in self.said.items()}
        both = sum(alone.values())
        for factor in FACTORS:
            nearness = {voice: [si_sdr(alone[voice], self.enhanced(self.with_voice(factor, whose), both))
                                for whose in (voice, other)] for voice, other in (("low", "high"), ("high", "low"))}
            for own, other in nearness.values():
                self.assertGreater(own - other, 3)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
