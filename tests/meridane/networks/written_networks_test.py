"""Networks that tools/meridane_nn.py wrote are loaded and run, and compared with the formulas in double precision.

Usage: written_networks_test.py SONIVO TOOLS_FOLDER; ends with 77 where NumPy is not installed.
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

try:
    import numpy as np
except ImportError:
    sys.exit(77)

SONIVO = os.path.abspath(sys.argv[1])
sys.path.insert(0, sys.argv[2])
from meridane_nn import LAYERS, Network  # noqa: E402

RNG = np.random.default_rng(7)
ROWS = 6


def numbers(*shape):
    """Multiples of 1/256 between -2 and 2: half precision holds them."""
    return RNG.integers(-512, 513, shape) / 256


def logistic(t):
    return 1 / (1 + np.exp(-t))


def argument(p, x):
    return p.get("slope", 1.0) * x - p.get("bias", 0.0)


def softmax(p, x):
    e = np.exp((x - x.max(axis=0)) / p.get("temperature", 1.0))
    return e / e.sum(axis=0)


def column(values):
    return np.reshape(values, (-1, 1))


def normalised(p, x, axis):
    d = np.sqrt(x.var(axis=axis, keepdims=True) + p.get("eps", 1e-5))
    return (x - x.mean(axis=axis, keepdims=True)) / d * column(p["weight"]) + column(p["bias"])


FORMULAS = {
    "Bias": lambda p, x: x + column(p["bias"]),
    "Prod": lambda p, x: x * column(p["bias"]),
    "FullyConnected": lambda p, x: p["weight"] @ x + column(p["bias"]),
    "Embedding": lambda p, x: p["weight"][x[0].astype(int)].T,
    "Sigmoid": lambda p, x: logistic(argument(p, x)),
    "Tanh": lambda p, x: np.tanh(argument(p, x)),
    "Swish": lambda p, x: x * logistic(argument(p, x)),
    "GLU": lambda p, x: x[: len(x) // 2] * logistic(argument(p, x[len(x) // 2 : len(x) // 2 * 2])),
    "ReLU": lambda p, x: np.maximum(0, x),
    "PReLU": lambda p, x: np.maximum(0, x) + p.get("a", 0.25) * np.minimum(0, x),
    "Softmax": softmax,
    "BatchNorm": lambda p, x: column(p["bias"])
    + (x - column(p["mean"])) / np.sqrt(column(p["var"]) + p.get("eps", 1e-5)) * column(p["weight"]),
    "LayerNorm": lambda p, x: normalised(p, x, 0),
    "GlobalLayerNorm": lambda p, x: normalised(p, x, None),
    "Print": lambda p, x: x,
}


def samples(layer):
    """Parameters with every field, and with as few as possible."""
    plain = layer.removeprefix("Compressed")
    shapes = {"FullyConnected": {"weight": (9, ROWS), "bias": (9,)}, "Embedding": {"weight": (4, 3)}}
    least, full = {}, {}
    for name, kind in LAYERS[layer]:
        if kind == "text":
            full[name] = 'a "name" & <more>'
        elif isinstance(kind, float):
            full[name] = 0.375
        else:
            value = numbers(*shapes.get(plain, {}).get(name, (ROWS,)))
            least[name] = full[name] = abs(value) if name == "var" else value
    return full | least, least


def input_of(layer, frames):
    if layer.endswith("Embedding"):
        return RNG.integers(0, 4, (1, frames)).astype(float)
    return numbers(ROWS, frames)


class WrittenNetworks(unittest.TestCase):
    def setUp(self):
        folder = tempfile.TemporaryDirectory()
        self.addCleanup(folder.cleanup)
        self.folder = folder.name

    def path(self, name):
        return os.path.join(self.folder, name)

    def sonivo(self, *arguments):
        subprocess.run([SONIVO, "nn", *arguments], check=True, stdout=subprocess.DEVNULL, stderr=subprocess.PIPE)

    def read(self, name):
        with open(self.path(name), "rb") as file:
            return file.read()

    def run_network(self, name, x):
        np.savetxt(self.path("x.tsv"), x, fmt="%.9g", delimiter="\t")
        self.sonivo("run", self.path(name), "--in", self.path("x.tsv"), "--out", self.path("y.tsv"))
        return np.loadtxt(self.path("y.tsv"), delimiter="\t", ndmin=2)

    def check(self, net, x, expected):
        net.write_binary(self.path("net.bin"))
        net.write_xml(self.path("net.xml"))
        for name in ("net.bin", "net.xml"):
            y = self.run_network(name, x)
            self.assertEqual(y.shape, expected.shape)
            # Single precision against double: some roundings of numbers of this size.
            np.testing.assert_allclose(y, expected, rtol=4e-6, atol=4e-6)
        self.sonivo("convert", self.path("net.xml"), self.path("again.bin"), "--to", "bin")
        self.assertEqual(self.read("again.bin"), self.read("net.bin"))

    def test_every_layer(self):
        self.assertEqual({layer.removeprefix("Compressed") for layer in LAYERS}, set(FORMULAS))
        for layer in LAYERS:
            for parameters in samples(layer):
                with self.subTest(layer=layer, parameters=sorted(parameters)):
                    x = input_of(layer, 5)
                    expected = FORMULAS[layer.removeprefix("Compressed")](parameters, x)
                    net = Network(len(x), len(expected))
                    net.add("one & <only>", layer, **parameters)
                    net.chain("_input", "one & <only>", "_output")
                    self.check(net, x, expected)

    def test_a_chain_and_what_does_not_lead_to_its_end(self):
        W, b, V, c = numbers(8, ROWS), numbers(8), numbers(3, 4), numbers(3)
        x = numbers(ROWS, 7)
        net = Network(ROWS, 3)
        net.add("hidden", "FullyConnected", weight=W, bias=b)
        net.add("aside", "ReLU")
        net.add("gate", "GLU", slope=0.5)
        net.add("out", "CompressedFullyConnected", weight=V, bias=c)
        net.chain("_input", "hidden", "gate", "out", "_output")
        net.link("hidden", "aside")
        h = W @ x + column(b)
        self.check(net, x, V @ (h[:4] * logistic(0.5 * h[4:])) + column(c))

    def test_the_examples_of_the_page(self):
        with open(os.path.join(sys.argv[2], "..", "docs", "network-files.md"), encoding="utf-8") as file:
            page = file.read()
        dump = re.search(r"```text\n(.*?)```", page, re.S)[1]
        document = re.search(r"```xml\n(<\?xml.*?)```", page, re.S)[1]
        with open(self.path("page.bin"), "wb") as file:
            for line in dump.splitlines():
                file.write(bytes.fromhex(re.match(r"(?:[0-9a-f]{2}(?:\s+|$))+", line)[0]))
        with open(self.path("page.xml"), "w", encoding="utf-8") as file:
            file.write(document)
        for name, ninput, formula in (
            ("page.bin", 1, lambda x: 2 * x + 1),
            ("page.xml", 3, lambda x: logistic(1.5 * ([[1, 2, 3], [4, 5, 6]] @ x + [[0.5], [-1e-3]]))),
        ):
            x = numbers(ninput, 4)
            np.testing.assert_allclose(self.run_network(name, x), formula(x), rtol=4e-6, atol=4e-6)

    def test_what_no_record_can_hold(self):
        net = Network(1, 1)
        for parameters in ({}, {"weight": [[1.0]]}, {"weight": [[]], "bias": [1.0]},
                           {"weight": [[1.0]], "bias": [1.0], "slope": 1.0}):
            with self.assertRaises(ValueError):
                net.add("a", "FullyConnected", **parameters)
        with self.assertRaises(ValueError):
            net.add("a", "LongShort")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
