"""The models of tools/build-enhancer on made-up talk in noise, and model files that Python writes and reads.

Usage: built_enhancers_test.py SONIVO TOOLS_FOLDER
"""

import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np

SONIVO = os.path.abspath(sys.argv[1])
TOOLS = os.path.abspath(sys.argv[2])
sys.path.insert(0, TOOLS)
from enhancer import SIZES, Enhancer  # noqa: E402
from made_up_talk import LEAD, RATE, enhanced, in_noise, level_db, pink, segmental_snr, si_sdr, talk  # noqa: E402
from model_container import Model, write_document  # noqa: E402


class BuiltEnhancers(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        cls.folder = tempfile.TemporaryDirectory()
        for size in SIZES:
            cls.build(f"{size}.bin", "--size", size)
        cls.build("switching.bin", "--size", "small", "--switching")
        cls.clean = talk(6, np.random.default_rng(3))

    @classmethod
    def tearDownClass(cls):
        cls.folder.cleanup()

    @classmethod
    def path(cls, name):
        return os.path.join(cls.folder.name, name)

    @classmethod
    def build(cls, name, *options):
        subprocess.run([sys.executable, os.path.join(TOOLS, "build-enhancer"), cls.path(name), *options], check=True)

    def enhanced(self, model, x, *options):
        return enhanced(SONIVO, self.path(model), x, self.folder.name, *options)

    def test_raises_the_segmental_snr_of_noisy_talk(self):
        rng = np.random.default_rng(4)
        for noise, least in ((rng.standard_normal(len(self.clean)), 3), (pink(len(self.clean), rng), 3)):
            for level in (1, 0.1):
                noisy = level * in_noise(self.clean, noise, 10)
                for size in SIZES:
                    y, _ = self.enhanced(f"{size}.bin", noisy)
                    gain = segmental_snr(level * self.clean, y) - segmental_snr(level * self.clean, noisy)
                    self.assertGreater(gain, least, (size, level))
                    quiet = slice(LEAD // 2, LEAD - 2000)
                    self.assertLess(level_db(y[quiet]) - level_db(noisy[quiet]), -10)

    def test_leaves_clean_talk_alone(self):
        for size in SIZES:
            y, _ = self.enhanced(f"{size}.bin", self.clean)
            self.assertGreater(si_sdr(self.clean, y), 30, size)

    def test_gives_the_input_back_at_strength_0_and_says_its_delay(self):
        x = np.random.default_rng(5).integers(-32768, 32768, 20000) / 32768
        for model in [f"{size}.bin" for size in SIZES] + ["switching.bin"]:
            y, text = self.enhanced(model, x, "--strength", "0")
            np.testing.assert_array_equal(y, x)
            self.assertTrue(text.startswith("delay             240 frames, 15.0 ms, taken out\n"), text)

    def test_hears_a_noise_that_comes_after_digital_silence(self):
        noise = 0.01 * np.random.default_rng(6).standard_normal(5 * RATE)
        y, _ = self.enhanced("medium.bin", np.concatenate([np.zeros(RATE), noise]))
        late = slice(3 * RATE, None)  # the lowest level of the last 1.3 s is the noise's
        self.assertLess(level_db(y[late]) - level_db(noise), -15)

    def test_switches_from_mild_to_strong(self):
        noisy = in_noise(self.clean, np.random.default_rng(7).standard_normal(len(self.clean)), 10)
        quiet = slice(LEAD // 2, LEAD - 2000)
        left = [np.mean(self.enhanced("switching.bin", noisy, "--switching", share)[0][quiet] ** 2)
                for share in ("0", "0.5", "1")]
        self.assertGreater(left[0], 1.5 * left[1])
        self.assertGreater(left[1], 1.5 * left[2])

    def test_does_not_depend_on_the_cutting(self):
        x = self.clean[LEAD:LEAD + 8000] + 0.01 * np.random.default_rng(8).standard_normal(8000)
        network = Enhancer(SIZES["small"])
        network.write_binary(self.path("net"))
        np.savetxt(self.path("x.tsv"), x[None], fmt="%.9g", delimiter="\t")

        def run(chunk):
            subprocess.run([SONIVO, "nn", "run", self.path("net"), "--in", self.path("x.tsv"), "--out",
                            self.path("y.tsv"), "--chunk", str(chunk)], check=True)
            return np.loadtxt(self.path("y.tsv"), delimiter="\t")

        whole = run(8000)
        self.assertEqual(whole.shape, (2, 8000))
        for chunk in (80, 160, 800):
            np.testing.assert_allclose(run(chunk), whole, rtol=0, atol=1e-6)

    def test_model_files_come_back_as_they_were(self):
        for flow in (None, "<flow/>"):
            model = Model("VAD", b"network", {"thr-vad": "0.5", "sample-frequency": "16000"}, flow)
            model.write(self.path("model"))
            read = Model.read(self.path("model"))
            self.assertEqual((read.kind, read.network, read.variables, read.flow),
                             (model.kind, model.network, model.variables, flow))
            for size in range(len(model.binary())):
                with self.assertRaises(ValueError):
                    Model.parse(model.binary()[:size])
        with self.assertRaises(ValueError):
            Model("SPK", b"")

    def test_the_text_form_computes_the_same(self):
        network = Enhancer(SIZES["small"])
        write_document(self.path("small.xml"), "SE", network, Model.read(self.path("small.bin")).variables)
        np.testing.assert_array_equal(self.enhanced("small.xml", self.clean)[0],
                                      self.enhanced("small.bin", self.clean)[0])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
