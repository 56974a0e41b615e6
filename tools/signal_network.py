"""Networks whose weights are formulas: transforms, filters along time and logarithms, made of the engine's layers."""

from meridane_nn import Network
from require_numpy import np

RATE_HZ = 16000
LOWEST_DB, STEP_DB, STEPS = -96, 6, 20  # of levels; white noise of power 1 has 0 dB


def taps(matrix, count, newest_first=False):
    """Splits the columns of a matrix, or with newest_first its rows, into taps, the earliest of them first."""
    parts = np.split(matrix, count, axis=0 if newest_first else 1)
    return np.concatenate(parts[::-1] if newest_first else parts)


def waves(frequencies, length):
    """Of a frame of this length: cosines above negative sines. Frequencies are in cycles per frame."""
    angle = 2 * np.pi * np.outer(frequencies, np.arange(length)) / length
    return np.concatenate([np.cos(angle), -np.sin(angle)])


class SignalNetwork(Network):
    def layer(self, id, type, *sources, **parameters):
        self.add(id, type, **parameters)
        for source in sources:
            self.link(source, id)

    def product(self, id, source, weight, bias=0.0):
        self.layer(id, "FullyConnected", source, weight=weight, bias=np.broadcast_to(bias, len(weight)))

    def convolution(self, id, source, weight, kernel):
        """The columns of the weight are those of the frames of a window, the earliest first."""
        self.taps_along_time(id, source, taps(weight, kernel), kernel)

    def taps_along_time(self, id, source, weight, kernel):
        self.layer(id, "TDNN", source, causal=1, pad=kernel, kernel=kernel, weight=weight,
                   bias=np.zeros(len(weight) // kernel))

    def along_time(self, id, source, weights, rows, dilation=1):
        """The same taps for each row, the earliest first."""
        self.layer(id, "TDNN", source, groups=1, causal=1, pad=(len(weights) - 1) * dilation + 1, dilation=dilation,
                   kernel=len(weights), weight=np.repeat(weights, rows)[:, None], bias=np.zeros(rows))

    def cut_into_hops(self, id, source, length):
        self.layer(id, "TDNN", source, kernel=length, stride=length, weight=taps(np.eye(length), length),
                   bias=np.zeros(length))

    def power(self, id, spectrum, bins):
        """Of a spectrum, real parts above imaginary ones, which become layers of their own: `<id> real` and so on."""
        for part, start in (("real", 0), ("imaginary", bins)):
            self.layer(f"{id} {part}", "Slice", spectrum, start=start, end=start + bins - 1)
            self.layer(f"{id} {part} squared", "Merge", f"{id} {part}", f"{id} {part}", mode="product")
        self.layer(id, "Merge", f"{id} real squared", f"{id} imaginary squared", mode="add")

    def logarithm(self, id, source, sign=1):
        """sign * (steps from LOWEST_DB to the power of the source): a sum of Tanh, each a step above the one before."""
        steps = [f"{id} {step}" for step in range(STEPS)]
        for step, name in enumerate(steps):
            self.layer(name, "Tanh", source, slope=sign * 10 ** (-(LOWEST_DB + STEP_DB * step) / 10))
        self.layer(id, "Merge", *steps, mode="add")

    def most_lately(self, id, source, stages, rows):
        """The highest of the last 2 ** stages values of each row, where 0 counts as one before the stream: a cascade
        of maxima. Tells the id of its last layer."""
        for stage in range(stages):
            target = f"{id} {stage}"
            self.along_time(f"{target} rise", source, (1, -1), rows, dilation=2 ** stage)
            self.layer(f"{target} risen", "ReLU", f"{target} rise")
            self.layer(target, "Merge", source, f"{target} risen", mode="add")
            source = target
        return source
