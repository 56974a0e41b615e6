"""Networks that tools/meridane_nn.py wrote are loaded and run, and compared with the formulas in double precision.

Usage: written_networks_test.py SONIVO TOOLS_FOLDER
"""

import os
import re
import subprocess
import sys
import tempfile
import unittest

import numpy as np

SONIVO = os.path.abspath(sys.argv[1])
sys.path.insert(0, sys.argv[2])
import map_layers  # noqa: E402
import time_layers  # noqa: E402
from meridane_nn import LAYERS, Network  # noqa: E402
from time_layers import column, logistic  # noqa: E402

RNG = np.random.default_rng(7)
ROWS = 6


def numbers(*shape):
    """Multiples of 1/256 between -2 and 2: half precision holds them."""
    return RNG.integers(-512, 513, shape) / 256


def argument(p, x):
    return p.get("slope", 1.0) * x - p.get("bias", 0.0)


def softmax(p, x):
    e = np.exp((x - x.max(axis=0)) / p.get("temperature", 1.0))
    return e / e.sum(axis=0)


def normalised(p, x, axis):
    d = np.sqrt(x.var(axis=axis, keepdims=True) + p.get("eps", 1e-5))
    return (x - x.mean(axis=axis, keepdims=True)) / d * column(p["weight"]) + column(p["bias"])


def pooled(x, scores):
    e = np.exp(scores - scores.max())
    return x @ column(e / e.sum())


def attention(p, x):
    q, k, v = np.split(p["in_weight"] @ x + column(p["in_bias"]), 3)
    weights = softmax({}, k.T @ q / np.sqrt(len(x)))
    return p["out_weight"] @ (v @ weights) + column(p["out_bias"])


def additive(p, x):
    hidden = np.tanh(p["key_weight"] @ x + column(p["key_bias"]) + column(p["query"]))
    return pooled(x, p.get("scaling", 1.0) * (p["gvec_weight"] @ hidden + p["gvec_bias"])[0])


def simple(p, x):
    scores = p["context"] @ np.tanh(p["weight"] @ x + column(p["bias"]))
    return np.hstack([pooled(x[:, : t + 1], scores[: t + 1]) for t in range(x.shape[1])])


def joined(p, x, g):
    h = np.tanh(p["lin_enc_weight"] @ x + p["lin_dec_weight"] @ g + column(p["lin_bias"]))
    return h, p["lin_out_weight"] @ h + column(p["lin_out_bias"])


def joint_hat(p, x, g):
    h, labels = joined(p, x, g)
    blank = logistic(p["lin_out_blk_weight"] @ h + column(p["lin_out_blk_bias"]))
    return np.log(np.vstack([blank, (1 - blank) * softmax({}, labels)]))


# Of two inputs, which the test makes of one.
JOINTS = {"Joint": lambda p, x, g: joined(p, x, g)[1], "JointHAT": joint_hat}

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
    "Slice": lambda p, x: x[p.get("start", 0) : p.get("end", 0) + 1],
    "SliceAlongTime": lambda p, x: x,
    "Concat": lambda p, x: x,
    "Merge": lambda p, x: x,
    "KeepPaceConcat": lambda p, x: x,
    "KeepPaceMerge": lambda p, x: x,
    "Attention": attention,
    "SimpleAttention": simple,
    "AdditiveSelfAttention": additive,
}
FORMULAS |= time_layers.FORMULAS | map_layers.FORMULAS
INTEGERS = {"axis": 0, "start": 1, "end": 4, "step": 1, "input_size": ROWS}
HIDDEN, LABELS = 5, 3
SHAPES = {
    "FullyConnected": {"weight": (9, ROWS), "bias": (9,)},
    "Embedding": {"weight": (4, 3)},
    "Attention": {"in_weight": (3 * ROWS, ROWS), "in_bias": (3 * ROWS,), "out_weight": (2, ROWS), "out_bias": (2,)},
    "SimpleAttention": {"weight": (HIDDEN, ROWS), "bias": (HIDDEN,), "context": (HIDDEN,)},
    "AdditiveSelfAttention": {"key_weight": (HIDDEN, ROWS), "key_bias": (HIDDEN,), "query": (HIDDEN,),
                              "gvec_weight": (1, HIDDEN), "gvec_bias": (1,)},
    "Joint": {"lin_enc_weight": (HIDDEN, 4), "lin_dec_weight": (HIDDEN, ROWS - 4), "lin_bias": (HIDDEN,),
              "lin_out_weight": (LABELS, HIDDEN), "lin_out_bias": (LABELS,)},
}
SHAPES["JointHAT"] = SHAPES["Joint"] | {"lin_out_blk_weight": (1, HIDDEN), "lin_out_blk_bias": (1,)}


def samples(layer):
    """Parameters with every field, and with as few as possible."""
    plain = layer.removeprefix("Compressed")
    if plain in time_layers.FORMULAS:
        return time_layers.samples(plain, ROWS, numbers)
    if plain in map_layers.FORMULAS:
        return map_layers.samples(plain, numbers)
    least, full = {}, {}
    for name, kind in LAYERS[layer]:
        if kind == "text":
            full[name] = 'a "name" & <more>'
        elif isinstance(kind, float):
            full[name] = 0.375
        elif isinstance(kind, np.integer):
            full[name] = INTEGERS[name]
        elif isinstance(kind, type):
            least[name] = full[name] = INTEGERS[name]
        elif kind == "mandatory text":
            least[name] = full[name] = "product"
        else:
            value = numbers(*SHAPES.get(plain, {}).get(name, (ROWS,)))
            least[name] = full[name] = abs(value) if name == "var" else value
    if layer == "SliceAlongTime":
        full |= {"start": 0, "end": 50}  # all there are: by itself it may not change their number
    return full | least, least


def input_of(layer, frames):
    if layer.endswith("Embedding"):
        return RNG.integers(0, 4, (1, frames)).astype(float)
    if layer.endswith("RelMHA"):
        return numbers(ROWS, 3 * frames)
    if layer.removeprefix("Compressed") in map_layers.FORMULAS:
        return numbers(map_layers.ROWS, frames)
    # A mean of frames is one frame; with calls of one there is nothing to average but what is kept.
    return numbers(ROWS, 1 if layer.endswith("AdditiveSelfAttention") else frames)


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

    def run_network(self, name, x, chunk=None):
        np.savetxt(self.path("x.tsv"), x, fmt="%.9g", delimiter="\t")
        chunks = ["--chunk", str(chunk)] if chunk else []
        self.sonivo("run", self.path(name), "--in", self.path("x.tsv"), "--out", self.path("y.tsv"), *chunks)
        return np.loadtxt(self.path("y.tsv"), delimiter="\t", ndmin=2)

    def check(self, net, x, expected, chunk=None):
        net.write_binary(self.path("net.bin"))
        net.write_xml(self.path("net.xml"))
        for name in ("net.bin", "net.xml"):
            y = self.run_network(name, x, chunk)
            self.assertEqual(y.shape, expected.shape)
            # Single precision against double: some roundings of numbers of this size.
            np.testing.assert_allclose(y, expected, rtol=4e-6, atol=4e-6)
        self.sonivo("convert", self.path("net.xml"), self.path("again.bin"), "--to", "bin")
        self.assertEqual(self.read("again.bin"), self.read("net.bin"))

    def test_every_layer(self):
        self.assertEqual({layer.removeprefix("Compressed") for layer in LAYERS}, set(FORMULAS) | set(JOINTS))
        for layer in LAYERS:
            if layer.removeprefix("Compressed") in JOINTS:
                continue
            for parameters in samples(layer):
                with self.subTest(layer=layer, parameters=sorted(parameters)):
                    x = input_of(layer, 5)
                    expected = FORMULAS[layer.removeprefix("Compressed")](parameters, x)
                    net = Network(len(x), len(expected))
                    net.add("one & <only>", layer, **parameters)
                    path = ["_input", "one & <only>", "_output"]
                    if layer.startswith("MaxPooling"):
                        map_layers.add_map(net, "map", layer)
                        path.insert(1, "map")
                    net.chain(*path)
                    self.check(net, x, expected, chunk=1 if layer.endswith("SimpleAttention") else None)

    def test_joints_of_two_streams(self):
        for layer in LAYERS:
            formula = JOINTS.get(layer.removeprefix("Compressed"))
            if formula is None:
                continue
            with self.subTest(layer=layer):
                parameters, _ = samples(layer)
                x = numbers(ROWS, 5)
                expected = formula(parameters, x[:4], x[4:])
                net = Network(ROWS, len(expected))
                net.add("encoder", "Slice", start=0, end=3)
                net.add("decoder", "Slice", start=4, end=ROWS - 1)
                net.add("joint", layer, **parameters)
                net.chain("_input", "encoder", "joint", "_output")
                net.chain("_input", "decoder", "joint")
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

    def test_branches_that_are_cut_and_joined(self):
        W, b = numbers(3, 2), numbers(3)
        x = numbers(ROWS, 7)
        net = Network(ROWS, 6)
        net.add("low", "Slice", start=0, end=1)
        net.add("high", "Slice", start=2, end=4)
        net.add("wide", "FullyConnected", weight=W, bias=b)
        net.add("mask", "Sigmoid")
        net.add("masked", "Merge", mode="product")
        net.add("sum", "KeepPaceMerge", mode="add")
        net.add("both", "Concat")
        net.add("paced", "KeepPaceConcat")
        net.chain("_input", "low", "wide", "mask", "masked")
        net.chain("_input", "high", "masked", "sum")
        net.link("wide", "sum")
        net.chain("low", "both", "paced", "_output")
        net.link("sum", "both")
        net.chain("_input", "last", "paced")
        net.add("last", "Slice", start=5, end=5)
        w = W @ x[:2] + column(b)
        self.check(net, x, np.vstack([x[:2], x[2:5] * logistic(w) + w, x[5:]]))

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
        with self.assertRaises(ValueError):
            net.add("a", "BLSTM", **time_layers.samples("BLSTM", ROWS, numbers)[1] | {"output_format": "Sum"})
        weight = {"weight": [[1.0]], "bias": [1.0]}
        for kernel in (weight, weight | {"size": (1, 1, 1), "stride": (1, 1, 1), "pad": (0, 0, 0)}):
            with self.assertRaises(ValueError):
                net.add("a", "Convolution3D", input_size=(1, 1, 1), output_channel=1, kernel=[kernel])


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
