"""Writes and reads model files: a network and the variables of its model in one file (see docs/model-files.md).

    model = Model("SE", network.binary(), {"chunk-size": "5"})     # network: a meridane_nn.Network
    model.write("enhance.bin")
    print(Model.read("enhance.bin").variables)
"""

import struct
from xml.sax.saxutils import escape, quoteattr

VERSION = "20231004"
MAGICS = {"SE": "sen", "SPK-ENC": "spk", "VAD": "vad"}  # the fourth letter is b in binary files, x in documents
_FLOW, _NETWORK = 0, 1


class Model:
    """What a model file holds.

    kind: SE, SPK-ENC or VAD. network: bytes of a network file, binary or XML. variables: texts by name, which the model
    takes over when it is loaded. flow: XML text of the preprocessor, if there is one.
    """

    def __init__(self, kind, network, variables=None, flow=None):
        if kind not in MAGICS:
            raise ValueError(f"{kind} is none of {', '.join(MAGICS)}")
        self.kind, self.network, self.flow = kind, network, flow
        self.variables = dict(variables or {})

    def binary(self):
        parts = [(MAGICS[self.kind] + "b").encode(), VERSION.encode(), _number(self.flow is not None)]
        if self.flow is not None:
            parts += [_number(_FLOW), _sized(self.flow.encode())]
        parts += [_number(_NETWORK), _sized(self.network), _number(len(self.variables))]
        for name, value in sorted((name.encode(), value.encode()) for name, value in self.variables.items()):
            parts += [_sized(name), _sized(value)]
        return b"".join(parts)

    def write(self, path):
        with open(path, "wb") as file:
            file.write(self.binary())

    @classmethod
    def read(cls, path):
        """Of a binary file; ValueError for anything else."""
        with open(path, "rb") as file:
            return cls.parse(file.read())

    @classmethod
    def parse(cls, data):
        data = _Reader(data)
        magic = data.take(4)
        kind = next((kind for kind, letters in MAGICS.items() if (letters + "b").encode() == magic), None)
        if kind is None:
            raise ValueError("no binary model file")
        version, _, padding = data.take(8).partition(b"\0")
        has_symbols = int(version.split(b".")[0]) >= 1
        if padding.strip(b"\0"):
            raise ValueError("the version has text behind its end")
        flow = data.section(_FLOW).decode() if data.number() else None
        network = data.section(_NETWORK)
        symbols = range(data.number() if has_symbols else 0)
        variables = {data.sized().decode(): data.sized().decode() for _ in symbols}
        if data.rest():
            raise ValueError("bytes behind the end")
        return cls(kind, network, variables, flow)


def write_document(path, kind, network, variables=None):
    """The XML form of a model without preprocessor. network: a meridane_nn.Network."""
    tag = escape(kind)
    options = [f"<option name={quoteattr(name)} value={quoteattr(value)}/>"
               for name, value in sorted((variables or {}).items())]
    lines = [MAGICS[kind] + 'x<?xml version="1.0"?>', f'<{tag} version="{VERSION}">',
             "<encoder>", network.element(), "</encoder>", *options, f"</{tag}>", ""]
    with open(path, "w", encoding="utf-8") as file:
        file.write("\n".join(lines))


def _number(value):
    return struct.pack("<I", value)


def _sized(data):
    return _number(len(data)) + data


class _Reader:
    def __init__(self, data):
        self.data, self.at = data, 0

    def take(self, size):
        if size > self.rest():
            raise ValueError("the file is truncated")
        self.at += size
        return self.data[self.at - size:self.at]

    def number(self):
        return struct.unpack("<I", self.take(4))[0]

    def sized(self):
        return self.take(self.number())

    def section(self, kind):
        if (found := self.number()) != kind:
            raise ValueError(f"a section of kind {found} instead of {kind}")
        return self.sized()

    def rest(self):
        return len(self.data) - self.at
