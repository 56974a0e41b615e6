"""Layers that work on a map inside each frame, in double precision: a column of x is a map, its first axis fastest."""

import numpy as np

CHANNELS, ROWS = 2, 24
SIZE = {"Convolution1D": (12, 1, 1), "Convolution2D": (4, 3, 1), "Convolution3D": (4, 3, 2), "MaxPooling1D": (12, 1, 1),
        "MaxPooling2D": (4, 3, 1)}


def map_of(x, *axes):
    return np.reshape(x, (*axes, x.shape[1]), order="F")


def frames_of(y):
    return np.reshape(y, (-1, y.shape[-1]), order="F")


def three(numbers, rest):
    return (*np.atleast_1d(numbers), rest, rest)[:3]


def convolved(kernel, channels, x):
    """x: channels, three axes of positions, frames."""
    size, stride = three(kernel["size"], 1), three(kernel.get("stride", 1), 1)
    x = np.pad(x, ((0, 0), *((pad, pad) for pad in three(kernel.get("pad", 0), 0)), (0, 0)))
    windows = np.lib.stride_tricks.sliding_window_view(x, size, axis=(1, 2, 3))
    windows = windows[:, :: stride[0], :: stride[1], :: stride[2]]
    weight = np.reshape(kernel["weight"], (-1, channels, *size), order="F")
    return frames_of(np.einsum("ocijk,cxyzfijk->oxyzf", weight, windows) + kernel["bias"][:, None, None, None, None])


def convolution1d(p, x):
    kernel = {"size": p["filter_size"], "weight": p["weight"], "bias": p["bias"]}
    return convolved(kernel, CHANNELS, map_of(x, CHANNELS, *SIZE["Convolution1D"]))


def convolution2d(p, x):
    x = map_of(x, *p["input_size"], 1)
    return np.vstack([convolved(kernel, p["input_size"][0], x) for kernel in p["kernel"]])


def convolution3d(p, x):
    x = map_of(x, 1, *p["input_size"])
    return np.vstack([convolved(kernel, 1, x) for kernel in p["kernel"]])


def max_pooling(p, x):
    """Of a map of two channels; what is behind the last whole window has no part."""
    width, height = three(p["pool_size"], 1)[:2]
    x = map_of(x, CHANNELS, *SIZE["MaxPooling2D" if np.size(p["pool_size"]) == 2 else "MaxPooling1D"][:2])
    x = x[:, : x.shape[1] // width * width, : x.shape[2] // height * height]
    x = x.reshape(CHANNELS, x.shape[1] // width, width, x.shape[2] // height, height, -1)
    return frames_of(x.max(axis=(2, 4)))


FORMULAS = {"Convolution1D": convolution1d, "Convolution2D": convolution2d, "Convolution3D": convolution3d,
            "MaxPooling1D": max_pooling, "MaxPooling2D": max_pooling}


def add_map(net, id, layer):
    """A layer that gives its input the shape that the pooling asks for, and else leaves it as it is."""
    weight, bias = np.eye(CHANNELS), np.zeros(CHANNELS)
    if layer == "MaxPooling1D":
        net.add(id, "Convolution1D", input_len=ROWS // CHANNELS, filter_size=1, weight=weight, bias=bias)
    else:
        net.add(id, "Convolution2D", input_size=(CHANNELS, *SIZE[layer][:2]), output_channel=CHANNELS,
                kernel=[{"size": (1, 1), "stride": (1, 1), "pad": (0, 0), "weight": weight, "bias": bias}])


def samples(layer, numbers):
    """Two sets of parameters of a layer of FORMULAS."""
    if layer == "Convolution1D":
        return [{"input_len": ROWS // CHANNELS, "filter_size": size, "weight": numbers(3, size * CHANNELS),
                 "bias": numbers(3)} for size in (1, 5)]
    if layer.startswith("MaxPooling"):
        return [{"pool_size": size} for size in ((5, 2) if layer == "MaxPooling1D" else ((2, 3), (3, 1)))]
    flat = layer == "Convolution2D"
    axes, depth = (2, CHANNELS) if flat else (3, 1)

    def kernel(size, stride, pad):
        sizes = {"size": size[:axes], "stride": stride[:axes]} | ({"pad": pad[:axes]} if flat else {})
        return sizes | {"weight": numbers(3, np.prod(size[:axes]) * depth), "bias": numbers(3)}

    kernels = [kernel((2, 3, 1), (1, 2, 1), (1, 2, 0)), kernel((4, 1, 2), (3, 1, 1), (0, 0, 0))]
    input_size = (CHANNELS, *SIZE[layer][:2]) if flat else SIZE[layer]
    return [{"input_size": input_size, "output_channel": 3, "kernel": part} for part in (kernels, kernels[:1])]
