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

# What a record holds behind its type, in this order: matrices, vectors, texts and layers by name, and numbers with their
# default (a Python float is stored as a single, a NumPy integer in its own size; the type alone: there is no default).
_SLOPED = ("slope", 1.0), ("bias", 0.0)
_NORM = ("weight", "vector"), ("bias", "vector")
_EPS = (("eps", 1e-5),)
_AXIS = (("axis", np.uint64(0)),)
_MODE = (("mode", "mandatory text"),)
_JOINT = (("lin_enc_weight", "matrix"), ("lin_dec_weight", "matrix"), ("lin_bias", "vector"),
          ("lin_out_weight", "matrix"), ("lin_out_bias", "vector"))
_TAPS = tuple((name, np.int32(value)) for name, value in
              (("groups", 0), ("causal", 0), ("pad", 0), ("dilation", 1), ("stride", 1))) + (
    ("kernel", np.int32), ("weight", "matrix"), ("bias", "vector"))
_LSTM = ("upward_weight", "matrix"), ("upward_bias", "vector"), ("lateral_weight", "matrix")
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
    "Slice": _AXIS + (("start", np.uint64(0)), ("end", np.uint64(0)), ("step", np.uint64(1))),
    "SliceAlongTime": (("start", np.int32(0)), ("end", np.int32(2**31 - 1))),
    "Concat": _AXIS,
    "Merge": _MODE,
    "KeepPaceConcat": _AXIS,
    "KeepPaceMerge": _MODE,
    "Attention": (("input_size", np.int32), ("in_weight", "matrix"), ("in_bias", "vector"), ("out_weight", "matrix"),
                  ("out_bias", "vector")),
    "SimpleAttention": (("weight", "matrix"), ("bias", "vector"), ("context", "vector")),
    "AdditiveSelfAttention": (("scaling", 1.0), ("key_weight", "matrix"), ("key_bias", "vector"), ("query", "vector"),
                              ("gvec_weight", "matrix"), ("gvec_bias", "vector")),
    "Joint": _JOINT,
    "JointHAT": _JOINT + (("lin_out_blk_weight", "matrix"), ("lin_out_blk_bias", "vector")),
    "TDNN": _TAPS,
    "TransposeTDNN": _TAPS,
    "LSTM": _LSTM,
    "ULSTM": _LSTM + (("lateral_bias", "vector"),),
    "RelPosEnc": (("cache_frame", np.int32(0)), ("reserve", np.int32(0))),
    "RelMHA": (("nhead", np.int32),) + tuple(
        (f"linear_{name}_{kind}", "matrix" if kind == "weight" else "vector")
        for name in ("q", "k", "v", "out") for kind in ("weight", "bias")) + (
        ("linear_pos_weight", "matrix"), ("pos_bias_u", "vector"), ("pos_bias_v", "vector")),
    "Conformer": (("cache_frame", np.int32), ("last_layer", np.int32(0)), ("sublayers", "layers")),
}
_HALF = ("Prod", "FullyConnected", "Embedding", "BatchNorm", "LayerNorm", "GlobalLayerNorm", "Attention",
         "SimpleAttention", "AdditiveSelfAttention", "Joint", "JointHAT", "TDNN", "TransposeTDNN", "LSTM", "ULSTM",
         "RelMHA", "Conformer")
LAYERS.update({"Compressed" + name: LAYERS[name] for name in _HALF})


def _checked(layer, parameters):
    """The fields of a layer with their values: arrays of float32, numbers, texts, lists of layers."""
    if layer not in LAYERS:
        raise ValueError(f"there is no layer {layer}")
    known = [name for name, _ in LAYERS[layer]]
    unknown = set(parameters) - set(known)
    if unknown:
        raise ValueError(f"{layer} has no {', '.join(sorted(unknown))}")
    for name, kind in LAYERS[layer]:
        if kind == "text":
            yield name, parameters.get(name, "")
        elif isinstance(kind, float):
            yield name, np.float32(parameters.get(name, kind))
        elif isinstance(kind, np.integer):
            yield name, kind.dtype.type(parameters.get(name, kind))
        elif name not in parameters:
            raise ValueError(f"{layer} needs {name}")
        elif kind == "mandatory text":
            yield name, parameters[name]
        elif isinstance(kind, type):
            yield name, kind(parameters[name])
        elif kind == "layers":
            yield name, [(id, type, list(_checked(type, own))) for id, (type, own) in parameters[name].items()]
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


def _record(type, fields):
    number = "<f2" if type.startswith("Compressed") else "<f4"
    parts = [type.encode()]
    for _, value in fields:
        if isinstance(value, np.ndarray):
            parts.append(_matrix(value, number))
        elif isinstance(value, str):
            parts.append(_string(value))
        elif isinstance(value, list):
            parts.append(struct.pack("<Q", len(value)))
            parts += [_layer(*layer) for layer in value]
        else:
            parts.append(value.astype(value.dtype.newbyteorder("<")).tobytes())
    return b"".join(parts)


def _layer(id, type, fields):
    return _string(id) + _string(type) + _record(type, fields)


def _element(id, type, fields):
    attributes, children = "", []
    for name, value in fields:
        if isinstance(value, np.ndarray):
            # The text of a float32 is the shortest that reads as the same value.
            rows = "\n".join("\t".join(map(str, row)) for row in value)
            children.append(f"<{name}>\n{rows}\n</{name}>")
        elif isinstance(value, list):
            children += [f"<{name}>", *(_element(*layer) for layer in value), f"</{name}>"]
        else:
            attributes += f" {name}={quoteattr(str(value))}"
    return "\n".join([f"<layer type={quoteattr(type)} id={quoteattr(id)}{attributes}>", *children, "</layer>"])


class Network:
    """Layers and links. An output frame has noutput values, an input frame ninput."""

    def __init__(self, ninput, noutput):
        self.ninput, self.noutput = ninput, noutput
        self.layers = []
        self.links = []

    def add(self, id, type, **parameters):
        """Sublayers, of a Conformer, are a dictionary from id to (type, parameters)."""
        self.layers.append((id, type, list(_checked(type, parameters))))

    def link(self, source, target):
        """The first layers are linked from "_input"; the link to "_output" names the last one."""
        self.links.append((source, target))

    def chain(self, *ids):
        for source, target in zip(ids, ids[1:]):
            self.link(source, target)

    def write_binary(self, path):
        parts = [b"MerNNpar", struct.pack("<4Q", self.ninput, self.noutput, len(self.layers), len(self.links))]
        parts += [_layer(*layer) for layer in self.layers]
        for source, target in self.links:
            parts += [_string(source), _string(target)]
        with open(path, "wb") as file:
            file.write(b"".join(parts))

    def write_xml(self, path):
        lines = ['<?xml version="1.0"?>',
                 f'<NN magic="MerNNpar" ninput="{self.ninput}" noutput="{self.noutput}">', "<layers>"]
        lines += [_element(*layer) for layer in self.layers]
        lines += ["</layers>", "<links>"]
        lines += [f"<link from_id={quoteattr(source)} to_id={quoteattr(target)}/>" for source, target in self.links]
        lines += ["</links>", "</NN>", ""]
        with open(path, "w", encoding="utf-8") as file:
            file.write("\n".join(lines))
