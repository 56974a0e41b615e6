"""Networks of the sizes that are trained for streaming, chunk by chunk against double precision.

Usage: streaming_networks_test.py SONIVO TOOLS_FOLDER
"""

import os
import subprocess
import sys
import tempfile
import unittest

import numpy as np

SONIVO = os.path.abspath(sys.argv[1])
sys.path.insert(0, sys.argv[2])
from meridane_nn import Network  # noqa: E402
from time_layers import (affine, column, conformer, conformer_sublayers, logistic, lstm, tdnn,  # noqa: E402
                         transpose_tdnn)

RNG = np.random.default_rng(11)


def numbers(*shape):
    """Weights that keep the size of what they are applied to, and small biases; of the precision of the files."""
    spread = 1 / np.sqrt(shape[1]) if len(shape) == 2 else 0.1
    return (RNG.standard_normal(shape) * spread).astype(np.float32).astype(float)


def taps(kernel, out, rows):
    """For full taps: their number counts as inputs."""
    return numbers(kernel * out, rows) / np.sqrt(kernel)


class StreamingNetworks(unittest.TestCase):
    def run_in_chunks(self, net, x, chunk):
        with tempfile.TemporaryDirectory() as folder:
            network, source, result = (os.path.join(folder, name) for name in ("net.bin", "x.tsv", "y.tsv"))
            net.write_binary(network)
            np.savetxt(source, x, fmt="%.9g", delimiter="\t")
            subprocess.run([SONIVO, "nn", "run", network, "--in", source, "--out", result, "--chunk", str(chunk)],
                           check=True, stdout=subprocess.DEVNULL)
            return np.loadtxt(result, delimiter="\t", ndmin=2)

    def check(self, net, x, chunk, expected, rounding):
        y = self.run_in_chunks(net, x, chunk)
        self.assertEqual(y.shape, expected.shape)
        self.assertGreater(expected.std(), 0.1)
        np.testing.assert_allclose(y, expected, rtol=0, atol=rounding)

    def test_a_causal_enhancement_network_in_the_time_domain(self):
        channels, narrow, blocks, kernel, stride = 256, 128, 14, 32, 16
        net = Network(1, 1)
        parameters = 0

        def add(id, type, *inputs, **own):
            nonlocal parameters
            parameters += sum(np.size(value) for value in own.values())
            net.add(id, type, **own)
            for source in inputs:
                net.link(source, id)
            return own

        def dense(id, source, out, rows):
            return add(id, "FullyConnected", source, weight=numbers(out, rows), bias=numbers(out))

        x = RNG.standard_normal((1, 800 * 5)).astype(np.float32).astype(float)
        framing = {"causal": 1, "pad": kernel, "stride": stride, "kernel": kernel}
        encoder = add("encoder", "TDNN", "_input", **framing, weight=taps(kernel, channels, 1), bias=numbers(channels))
        encoded = tdnn(encoder, x)
        y = affine(dense("bottleneck", "encoder", narrow, channels), encoded)
        before = "bottleneck"
        for i in range(blocks):
            name = [f"{part}{i}" for part in ("in", "prelu", "depth", "swish", "out", "sum")]
            inner = affine(dense(name[0], before, channels, narrow), y)
            add(name[1], "PReLU", name[0], a=0.25)
            dilation = 2 ** (i % 7)
            depth = add(name[2], "TDNN", name[1], groups=1, causal=1, pad=2 * dilation + 1, dilation=dilation, kernel=3,
                        weight=numbers(3 * channels, 1) / np.sqrt(3), bias=numbers(channels))
            inner = tdnn(depth, np.maximum(inner, 0) + 0.25 * np.minimum(inner, 0))
            add(name[3], "Swish", name[2])
            y = y + affine(dense(name[4], name[3], narrow, channels), inner * logistic(inner))
            add(name[5], "Merge", before, name[4], mode="add")
            before = name[5]
        mask = logistic(affine(dense("mask", before, channels, narrow), y))
        add("gate", "Sigmoid", "mask")
        add("masked", "Merge", "encoder", "gate", mode="product")
        decoder = add("decoder", "TransposeTDNN", "masked", **framing, weight=taps(kernel, channels, 1),
                      bias=numbers(1))
        net.link("decoder", "_output")
        self.assertTrue(900_000 < parameters < 1_100_000, parameters)
        self.check(net, x, 800, transpose_tdnn(decoder, encoded * mask), 2e-5)

    def test_a_conformer_encoder(self):
        d, heads, chunk, cache = 256, 4, 5, 24
        x = RNG.standard_normal((d, 60)).astype(np.float32).astype(float)
        net = Network(d, d)
        net.add("positions", "RelPosEnc", cache_frame=cache, reserve=16)
        ids = ["_input", "positions"]
        expected = x
        for i in range(6):
            block = {"cache_frame": cache, "sublayers": conformer_sublayers(numbers, d, heads, 4 * d, 15)}
            # Normalised frames should stay normal.
            for name in ("norm1", "norm2", "norm3", "norm4", "norm5", "norm6"):
                block["sublayers"][name][1]["weight"] = 1 + numbers(d)
            ids.append(f"block{i}")
            net.add(ids[-1], "Conformer", **block)
            expected = conformer(block, expected, chunk)
        net.chain(*ids, "_output")
        self.check(net, x, chunk, expected, 2e-5)

    def test_a_mask_of_two_layers_of_lstm(self):
        rows, cells = 257, 512
        x = RNG.standard_normal((rows, 60)).astype(np.float32).astype(float)
        net = Network(rows, rows)
        y, ids = x, ["_input"]
        for i in range(2):
            layer = {"upward_weight": numbers(4 * cells, len(y)), "upward_bias": numbers(4 * cells),
                     "lateral_weight": numbers(4 * cells, cells)}
            ids.append(f"lstm{i}")
            net.add(ids[-1], "LSTM", **layer)
            y = lstm(layer, y)
        out = {"weight": numbers(rows, cells), "bias": numbers(rows)}
        net.add("out", "FullyConnected", **out)
        net.add("mask", "Sigmoid")
        net.add("masked", "Merge", mode="product")
        net.chain(*ids, "out", "mask", "masked", "_output")
        net.link("_input", "masked")
        self.check(net, x, 7, x * logistic(affine(out, y)), 2e-6)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
