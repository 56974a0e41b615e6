"""Writes networks for the engine, in both of its file forms (see docs/network-files.md). Needs NumPy only.

    net = Network(ninput=40, noutput=2)
    net.add("hidden", "FullyConnected", weight=W, bias=b)   # W: 64 x 40, b: 64
    net.add("gate", "Sigmoid", slope=1.5)
    net.add("out", "CompressedFullyConnected", weight=V, bias=c)
    net.chain("_input", "hidden", "gate", "out", "_output")
    net.write_binary("net.bin")
    net.write_xml("net.xml")
"""

import struct
from xml.sax.saxutils import quoteattr

import numpy as np

# What a record holds behind its type, in this order: matrices and vectors by name, numbers with their default.
_SLOPED = ("slope", 1.0), ("bias", 0.0)
_NORM = ("weight", "vector"), ("bias", "vector")
_EPS = (("eps", 1e-5),)
LAYERS = {
    "Bias": (("bias", "vector"),),
    "Prod": (("bias", "vector"),),
    "FullyConnected": (("weight", "matrix"), ("bias", "vector")),
    "Embedding": (("weight", "matrix"),),
    "Sigmoid": _SLOPED,
    "Tanh": _SLOPED,
    "Swish": _SLOPED,
    "GLU": _SLOPED,
    "ReLU": (),
    "PReLU": (("a", 0.25),),
    "Softmax": (("temperature", 1.0),),
    "BatchNorm": _NORM + (("mean", "vector"), ("var", "vector")) + _EPS,
    "LayerNorm": _NORM + _EPS,
    "GlobalLayerNorm": _NORM + _EPS,
    "Print": (("layer_name", "text"),),
}
_HALF = ("Prod", "FullyConnected", "Embedding", "BatchNorm", "LayerNorm", "GlobalLayerNorm")
LAYERS.update({"Compressed" + name: LAYERS[name] for name in _HALF})


def _checked(layer, parameters):
    """The fields of a layer with their values: arrays of float32, numbers, texts."""
    known = [name for name, _ in LAYERS[layer]]
    unknown = set(parameters) - set(known)
    if unknown:
        raise ValueError(f"{layer} has no {', '.join(sorted(unknown))}")
    for name, kind in LAYERS[layer]:
        if kind == "text":
            yield name, parameters.get(name, "")
        elif isinstance(kind, float):
            yield name, np.float32(parameters.get(name, kind))
        elif name not in parameters:
            raise ValueError(f"{layer} needs {name}")
        else:
            array = np.asarray(parameters[name], dtype=np.float32)
            if kind == "vector":
                array = array.reshape(-1, 1)
            if array.ndim != 2 or array.size == 0:
                raise ValueError(f"{name} of {layer} is no matrix")
            yield name, array


def _string(text):
    data = text.encode()
    return struct.pack("<Q", len(data)) + data


def _matrix(array, number):
    return struct.pack("<qq", *array.shape) + array.astype(number).tobytes()


class Network:
    """Layers and links. An output frame has noutput values, an input frame ninput."""

    def __init__(self, ninput, noutput):
        self.ninput, self.noutput = ninput, noutput
        self.layers = []
        self.links = []

    def add(self, id, type, **parameters):
        if type not in LAYERS:
            raise ValueError(f"there is no layer {type}")
        self.layers.append((id, type, list(_checked(type, parameters))))

    def link(self, source, target):
        """The first layers are linked from "_input"; the link to "_output" names the last one."""
        self.links.append((source, target))

    def chain(self, *ids):
        for source, target in zip(ids, ids[1:]):
            self.link(source, target)

    def write_binary(self, path):
        parts = [b"MerNNpar", struct.pack("<4Q", self.ninput, self.noutput, len(self.layers), len(self.links))]
        for id, type, fields in self.layers:
            number = "<f2" if type.startswith("Compressed") else "<f4"
            parts += [_string(id), _string(type), type.encode()]
            for _, value in fields:
                if isinstance(value, np.ndarray):
                    parts.append(_matrix(value, number))
                elif isinstance(value, str):
                    parts.append(_string(value))
                else:
                    parts.append(struct.pack("<f", value))
        for source, target in self.links:
            parts += [_string(source), _string(target)]
        with open(path, "wb") as file:
            file.write(b"".join(parts))

    def write_xml(self, path):
        lines = ['<?xml version="1.0"?>',
                 f'<NN magic="MerNNpar" ninput="{self.ninput}" noutput="{self.noutput}">', "<layers>"]
        for id, type, fields in self.layers:
            single = "".join(f" {name}={quoteattr(str(value))}" for name, value in fields
                             if not isinstance(value, np.ndarray))
            lines.append(f"<layer type={quoteattr(type)} id={quoteattr(id)}{single}>")
            for name, value in fields:
                if isinstance(value, np.ndarray):
                    # The text of a float32 is the shortest that reads as the same value.
                    rows = "\n".join("\t".join(map(str, row)) for row in value)
                    lines.append(f"<{name}>\n{rows}\n</{name}>")
            lines.append("</layer>")
        lines += ["</layers>", "<links>"]
        lines += [f"<link from_id={quoteattr(source)} to_id={quoteattr(target)}/>" for source, target in self.links]
        lines += ["</links>", "</NN>", ""]
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))
