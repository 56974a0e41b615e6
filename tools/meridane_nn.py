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
from typing import NamedTuple
from xml.sax.saxutils import quoteattr

from require_numpy import np

# What a record holds behind its type, in this order: matrices, vectors, texts and layers by name, and numbers with their
# default (a Python float is stored as a single, a NumPy integer in its own size; the type alone: there is no default).
# A tuple holds the words of an attribute, which stand for 0, 1 and so on in a record; the first is the default. A
# dictionary holds what each of several parts has.
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
_DIRECTIONS = tuple((f"{direction}_{name}", kind) for direction in ("forward", "backward")
                    for name, kind in _LSTM + (("lateral_bias", "vector"),))
_OUTPUT_FORMAT = (("output_format", ("concat", "sum")),)
_MAP = ("input_size", "integers"), ("output_channel", np.int32)
_KERNEL = {"size": "integers", "stride": "integers"}
_WEIGHT = {"weight": "matrix", "bias": "vector"}
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
    "BLSTM": _DIRECTIONS + _OUTPUT_FORMAT,
    "LCBLSTM": _DIRECTIONS + (("chunk_size", np.int32), ("future_chunk_size", np.int32),
                              ("store_buffer", ("false", "true"))) + _OUTPUT_FORMAT,
    "Convolution1D": (("input_len", np.uint64(0)), ("filter_size", np.uint64), *_WEIGHT.items()),
    "Convolution2D": _MAP + (("kernel", _KERNEL | {"pad": "integers"} | _WEIGHT),),
    "Convolution3D": _MAP + (("kernel", _KERNEL | _WEIGHT),),
    "MaxPooling1D": (("pool_size", np.int32),),
    "MaxPooling2D": (("pool_size", "integers"),),
    "RelPosEnc": (("cache_frame", np.int32(0)), ("reserve", np.int32(0))),
    "RelMHA": (("nhead", np.int32),) + tuple(
        (f"linear_{name}_{kind}", "matrix" if kind == "weight" else "vector")
        for name in ("q", "k", "v", "out") for kind in ("weight", "bias")) + (
        ("linear_pos_weight", "matrix"), ("pos_bias_u", "vector"), ("pos_bias_v", "vector")),
    "Conformer": (("cache_frame", np.int32), ("last_layer", np.int32(0)), ("sublayers", "layers")),
}
_HALF = ("Prod", "FullyConnected", "Embedding", "BatchNorm", "LayerNorm", "GlobalLayerNorm", "Attention",
         "SimpleAttention", "AdditiveSelfAttention", "Joint", "JointHAT", "TDNN", "TransposeTDNN", "LSTM", "ULSTM",
         "BLSTM", "LCBLSTM", "Convolution2D", "RelMHA", "Conformer")
LAYERS.update({"Compressed" + name: LAYERS[name] for name in _HALF})


class _Word(NamedTuple):
    number: int
    text: str


class _Parts(NamedTuple):
    fields: list  # of each


def _checked(layer, parameters):
    if layer not in LAYERS:
        raise ValueError(f"there is no layer {layer}")
    return _values(layer, LAYERS[layer], parameters)


def _values(layer, fields, parameters):
    """The fields with their values: matrices of float32, numbers and arrays of them, texts, words, layers, parts."""
    unknown = set(parameters) - {name for name, _ in fields}
    if unknown:
        raise ValueError(f"{layer} has no {', '.join(sorted(unknown))}")
    for name, kind in fields:
        if kind == "text":
            yield name, parameters.get(name, "")
        elif isinstance(kind, float):
            yield name, np.float32(parameters.get(name, kind))
        elif isinstance(kind, np.integer):
            yield name, kind.dtype.type(parameters.get(name, kind))
        elif isinstance(kind, tuple):
            word = parameters.get(name, kind[0])
            if word not in kind:
                raise ValueError(f"{name} of {layer} is none of {', '.join(kind)}")
            yield name, _Word(kind.index(word), word)
        elif name not in parameters:
            raise ValueError(f"{layer} needs {name}")
        elif kind == "mandatory text":
            yield name, parameters[name]
        elif isinstance(kind, type):
            yield name, kind(parameters[name])
        elif kind == "integers":
            yield name, np.asarray(parameters[name], dtype=np.int32).reshape(-1)
        elif isinstance(kind, dict):
            yield name, _Parts([list(_values(f"{name} of {layer}", kind.items(), part)) for part in parameters[name]])
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


def _is_matrix(value):
    return isinstance(value, np.ndarray) and value.ndim == 2


def _packed(fields, number):
    for _, value in fields:
        if _is_matrix(value):
            yield _matrix(value, number)
        elif isinstance(value, str):
            yield _string(value)
        elif isinstance(value, list):
            yield struct.pack("<Q", len(value))
            yield from (_layer(*layer) for layer in value)
        elif isinstance(value, _Word):
            yield struct.pack("<i", value.number)
        elif isinstance(value, _Parts):
            yield struct.pack("<i", len(value.fields))
            for part in value.fields:
                yield from _packed(part, number)
        else:
            yield value.astype(value.dtype.newbyteorder("<")).tobytes()


def _layer(id, type, fields):
    number = "<f2" if type.startswith("Compressed") else "<f4"
    return _string(id) + _string(type) + type.encode() + b"".join(_packed(fields, number))


def _layer_element(id, type, fields):
    return _element("layer", f" type={quoteattr(type)} id={quoteattr(id)}", fields)


def _element(tag, attributes, fields):
    children = []
    for name, value in fields:
        if _is_matrix(value):
            # The text of a float32 is the shortest that reads as the same value.
            rows = "\n".join("\t".join(map(str, row)) for row in value)
            children.append(f"<{name}>\n{rows}\n</{name}>")
        elif isinstance(value, list):
            children += [f"<{name}>", *(_layer_element(*layer) for layer in value), f"</{name}>"]
        elif isinstance(value, _Parts):
            children += [_element(name, "", part) for part in value.fields]
        else:
            text = value.text if isinstance(value, _Word) else value
            if isinstance(value, np.ndarray):
                text = " ".join(map(str, value))
            attributes += f" {name}={quoteattr(str(text))}"
    return "\n".join([f"<{tag}{attributes}>", *children, f"</{tag}>"])


class Network:
    """Layers and links. An output frame has noutput values, an input frame ninput."""

    def __init__(self, ninput, noutput):
        self.ninput, self.noutput = ninput, noutput
        self.layers = []
        self.links = []

    def add(self, id, type, **parameters):
        """Sublayers, of a Conformer, are a dictionary from id to (type, parameters); what a Convolution2D or 3D has as
        `kernel` is a list of dictionaries."""
        self.layers.append((id, type, list(_checked(type, parameters))))

    def link(self, source, target):
        """The first layers are linked from "_input"; the link to "_output" names the last one."""
        self.links.append((source, target))

    def chain(self, *ids):
        for source, target in zip(ids, ids[1:]):
            self.link(source, target)

    def binary(self):
        parts = [b"MerNNpar", struct.pack("<4Q", self.ninput, self.noutput, len(self.layers), len(self.links))]
        parts += [_layer(*layer) for layer in self.layers]
        for source, target in self.links:
            parts += [_string(source), _string(target)]
        return b"".join(parts)

    def element(self):
        lines = [f'<NN magic="MerNNpar" ninput="{self.ninput}" noutput="{self.noutput}">', "<layers>"]
        lines += [_layer_element(*layer) for layer in self.layers]
        lines += ["</layers>", "<links>"]
        lines += [f"<link from_id={quoteattr(source)} to_id={quoteattr(target)}/>" for source, target in self.links]
        lines += ["</links>", "</NN>"]
        return "\n".join(lines)

    def write_binary(self, path):
        with open(path, "wb") as file:
            file.write(self.binary())

    def write_xml(self, path):
        with open(path, "w", encoding="utf-8") as file:
            file.write('<?xml version="1.0"?>\n' + self.element() + "\n")
