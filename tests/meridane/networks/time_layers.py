"""Layers that look at more than one frame, in double precision: x holds the frames of a whole stream as columns."""

import numpy as np


def column(values):
    return np.reshape(values, (-1, 1))


def logistic(t):
    return 1 / (1 + np.exp(-t))


def swish(x):
    return x * logistic(x)


def layer_norm(p, x):
    normal = (x - x.mean(axis=0)) / np.sqrt(x.var(axis=0) + p.get("eps", 1e-5))
    return normal * column(p["weight"]) + column(p["bias"])


def affine(p, x):
    return p["weight"] @ x + column(p["bias"])


def taps(p):
    """The matrix of each tap, of one weight per feature under groups."""
    blocks = np.split(np.asarray(p["weight"], dtype=float), p["kernel"])
    return [np.diag(block[:, 0]) for block in blocks] if p.get("groups") else blocks


def overlap(p):
    """Frames that neighbouring windows have in common."""
    return max((p["kernel"] - 1) * p.get("dilation", 1) + 1 - p.get("stride", 1), 0)


def tdnn(p, x):
    stride, dilation = p.get("stride", 1), p.get("dilation", 1)
    x = np.pad(x, ((0, 0), (overlap(p), 0) if p.get("causal") else (p.get("pad", 0),) * 2))
    frames = (x.shape[1] - (p["kernel"] - 1) * dilation - 1) // stride + 1
    y = np.tile(column(p["bias"]).astype(float), frames)
    for k, tap in enumerate(taps(p)):
        first = k * dilation
        window = x[:, first : first + (frames - 1) * stride + 1 : stride]
        y += np.diag(tap)[:, None] * window if p.get("groups") else tap @ window
    return y


def transpose_tdnn(p, x):
    """Those frames of tdnn's transpose that no later x adds to, less those before the stream."""
    stride, dilation, frames = p.get("stride", 1), p.get("dilation", 1), x.shape[1]
    y = np.zeros((len(p["bias"]), (frames - 1) * stride + (p["kernel"] - 1) * dilation + 1))
    for k, tap in enumerate(taps(p)):
        first = k * dilation
        y[:, first : first + (frames - 1) * stride + 1 : stride] += tap.T @ x
    begin = overlap(p) if p.get("causal") else p.get("pad", 0)
    end = frames * stride - (0 if p.get("causal") else max(begin - overlap(p), 0))
    return y[:, begin:end] + column(p["bias"])


def lstm(p, x):
    cells = p["lateral_weight"].shape[1]
    h, c, outputs = np.zeros(cells), np.zeros(cells), []
    inputs = p["upward_weight"] @ x + column(p["upward_bias"]) + column(p.get("lateral_bias", 0))
    for z in inputs.T:
        z = z + p["lateral_weight"] @ h
        g, (i, f, o) = np.tanh(z[:cells]), logistic(z[cells:].reshape(3, cells))
        c = g * i + f * c
        h = o * np.tanh(c)
        outputs.append(h)
    return np.array(outputs).T


def both_directions(p, x, seen):
    """The backward direction begins anew at every seen[0]-th frame, and looks at seen[1] frames from there."""
    forward, backward = ({name.removeprefix(f"{direction}_"): value for name, value in p.items()}
                         for direction in ("forward", "backward"))
    step, unit = seen
    back = [lstm(backward, x[:, t : t + unit][:, ::-1])[:, ::-1][:, :step] for t in range(0, x.shape[1], step)]
    along, back = lstm(forward, x), np.hstack(back)
    return along + back if p.get("output_format") == "sum" else np.vstack([along, back])


def blstm(p, x):
    return both_directions(p, x, (x.shape[1], x.shape[1]))


def lcblstm(p, x):
    unit = p["chunk_size"] + p["future_chunk_size"]
    return both_directions(p, x, (p["chunk_size"] if p.get("store_buffer") == "true" else unit, unit))


def encodings(rows, distances):
    """A column for each distance n: sin(n f) in even rows, cos(n f) in odd ones."""
    frequencies = np.exp(-2 * np.arange((rows + 1) // 2) * np.log(10000) / rows)
    angles = np.outer(np.repeat(frequencies, 2)[:rows], distances)
    return np.where(np.arange(rows)[:, None] % 2 == 0, np.sin(angles), np.cos(angles))


def attention(p, q, k, v, positions, sees):
    """positions: the columns for the distances -(keys - 1) to queries - 1; queries are the last of the keys' frames."""
    q, k, v = (p[f"linear_{name}_weight"] @ x + column(p[f"linear_{name}_bias"])
               for name, x in (("q", q), ("k", k), ("v", v)))
    P = p["linear_pos_weight"] @ positions
    queries, keys, heads = q.shape[1], k.shape[1], p["nhead"]
    distances = np.arange(keys) - np.arange(keys - queries, keys)[:, None]
    context = np.empty_like(q)
    for rows in np.split(np.arange(len(q)), heads):
        of_key = (q + column(p["pos_bias_u"]))[rows].T @ k[rows]
        of_position = (q + column(p["pos_bias_v"]))[rows].T @ P[rows]
        scores = of_key + np.take_along_axis(of_position, distances + keys - 1, axis=1)
        scores = np.where(sees, scores, -np.inf) / np.sqrt(len(rows))
        e = np.exp(scores - scores.max(axis=1, keepdims=True))
        context[rows] = v[rows] @ (e / e.sum(axis=1, keepdims=True)).T
    return p["linear_out_weight"] @ context + column(p["linear_out_bias"])


def rel_mha(p, x):
    d, frames = len(x) // 2, x.shape[1] // 3
    return attention(p, *np.split(x[:d], 3, axis=1), x[d:, : 2 * frames - 1], True)


def rel_pos_enc(_, x):
    """Of a first call: share 1."""
    distances = np.arange(x.shape[1])
    return np.vstack([x, encodings(len(x), distances), encodings(len(x), -distances)])


def conformer(p, x, chunk=None):
    """Fed in chunks: a frame sees its own chunk and the cache before it."""
    part = {name: own for name, (_, own) in p["sublayers"].items()}
    frames = x.shape[1]
    begin = np.arange(frames) // (chunk or frames) * (chunk or frames)
    cache = 0 if p.get("last_layer") else p["cache_frame"]
    index = np.arange(frames)
    sees = (index >= begin[:, None] - cache) & (index < begin[:, None] + (chunk or frames))

    x = x + 0.5 * affine(part["fc2"], swish(affine(part["fc1"], layer_norm(part["norm1"], x))))
    n = layer_norm(part["norm2"], x)
    x = x + attention(part["mha1"], n, n, n, encodings(len(x), np.arange(1 - frames, frames)), sees)
    a, b = np.split(affine(part["conv1"], layer_norm(part["norm3"], x)), 2)
    y = tdnn(part["conv2"], a * logistic(b))
    norm = part["norm4"]
    y = (y - column(norm["mean"])) / np.sqrt(column(norm["var"]) + 1e-5) * column(norm["weight"]) + column(norm["bias"])
    x = x + affine(part["conv3"], swish(y))
    x = x + 0.5 * affine(part["fc4"], swish(affine(part["fc3"], layer_norm(part["norm5"], x))))
    return layer_norm(part["norm6"], x)


def attention_parameters(numbers, d, heads):
    linear = {f"linear_{name}_{kind}": numbers(d, d) if kind == "weight" else numbers(d)
              for name in ("q", "k", "v", "out") for kind in ("weight", "bias")}
    return linear | {"nhead": heads, "linear_pos_weight": numbers(d, d), "pos_bias_u": numbers(d),
                     "pos_bias_v": numbers(d)}


def conformer_sublayers(numbers, d, heads, hidden, kernel):
    """Those of a Conformer as it is usually made."""
    def norm():
        return "LayerNorm", {"weight": numbers(d), "bias": numbers(d)}

    def linear(rows, cols):
        return "FullyConnected", {"weight": numbers(rows, cols), "bias": numbers(rows)}

    activation = ("Swish", {})
    return {
        "norm1": norm(), "fc1": linear(hidden, d), "act1": activation, "fc2": linear(d, hidden),
        "norm2": norm(), "mha1": ("RelMHA", attention_parameters(numbers, d, heads)),
        "norm3": norm(), "conv1": linear(2 * d, d), "act2": ("GLU", {}),
        "conv2": ("TDNN", {"groups": 1, "causal": 1, "pad": kernel, "kernel": kernel,
                           "weight": numbers(kernel * d, 1), "bias": numbers(d)}),
        "norm4": ("BatchNorm", {"weight": numbers(d), "bias": numbers(d), "mean": numbers(d),
                                "var": abs(numbers(d)) + 0.5}),
        "act3": activation, "conv3": linear(d, d),
        "norm5": norm(), "fc3": linear(hidden, d), "act4": activation, "fc4": linear(d, hidden),
        "norm6": norm()}


FORMULAS = {"TDNN": tdnn, "TransposeTDNN": transpose_tdnn, "LSTM": lstm, "ULSTM": lstm, "BLSTM": blstm,
            "LCBLSTM": lcblstm, "RelPosEnc": rel_pos_enc, "RelMHA": rel_mha, "Conformer": conformer}


def samples(layer, rows, numbers):
    """Parameters with every field, and with as few as possible, of a layer of FORMULAS."""
    if layer in ("TDNN", "TransposeTDNN"):
        least = {"kernel": 2, "weight": numbers(2 * 4, rows), "bias": numbers(4)}
        if layer == "TransposeTDNN":
            least |= {"weight": numbers(2 * rows, 4), "bias": numbers(4)}
        grouped = {"kernel": 3, "weight": numbers(3 * rows, 1), "bias": numbers(rows)}
        return grouped | {"groups": 1, "causal": 1, "pad": 5, "dilation": 2, "stride": 2}, least
    if layer in ("LSTM", "ULSTM"):
        least = {"upward_weight": numbers(4 * 3, rows), "upward_bias": numbers(4 * 3),
                 "lateral_weight": numbers(4 * 3, 3)}
        if layer == "ULSTM":
            least["lateral_bias"] = numbers(4 * 3)
        return least, least
    if layer in ("BLSTM", "LCBLSTM"):
        least = {f"{direction}_{name}": numbers(*shape) for direction in ("forward", "backward")
                 for name, shape in (("upward_weight", (12, rows)), ("upward_bias", (12,)), ("lateral_weight", (12, 3)),
                                     ("lateral_bias", (12,)))}
        full = least | {"output_format": "sum"}
        if layer == "BLSTM":
            return full, least
        sizes = {"chunk_size": 2, "future_chunk_size": 1}
        return full | sizes | {"store_buffer": "true"}, least | sizes
    if layer == "RelPosEnc":
        return {"cache_frame": 9, "reserve": 16}, {}
    if layer == "RelMHA":
        return attention_parameters(numbers, rows // 2, 3), attention_parameters(numbers, rows // 2, 1)
    least = {"cache_frame": 2, "sublayers": conformer_sublayers(numbers, rows, 2, 10, 3)}
    return least | {"last_layer": 1}, least
