"""Networks that take stationary noise out of speech; tools/build-enhancer says how and how well."""

from typing import NamedTuple

from require_numpy import np
from signal_network import RATE_HZ, STEP_DB, STEPS, SignalNetwork, taps, waves

HOP = 80
SLOPE = 160  # samples, of the synthesis window on each side
DELAY = 2 * SLOPE - HOP

BAND_HOPS = 12  # that a band's level is averaged over
NOISE_STAGES = 8  # the lowest level of 2 ** 8 hops
NOISE_BIAS_DB = 5.0  # by which white noise lies above the lowest of its levels, times the root of a band's bins
NEAR_HOPS = (0.3, 0.3, 0.4)  # of a bin's power
AROUND_BINS = np.full(9, 1 / 9)
AROUND_SHARE = 0.4
MASK_CENTRE_DB, MASK_SLOPE = 5.5, 0.66  # the slope is per dB
FLOOR, MILD_FLOOR, STRONG_FLOOR = 0.06, 0.25, 0.03  # what is left of the input where the mask is 0

# Of models that take samples, 10 ms at a time.
_SAMPLES = {"feature-extractor-type": "none", "sample-frequency": "16000", "frame-length": "10", "frame-shift": "10"}
VARIABLES = {"SE": _SAMPLES | {"offline": "false", "chunk-size": "5"}, "SPK-ENC": _SAMPLES}


class Size(NamedTuple):
    window: int  # samples
    bands: int


SIZES = {"small": Size(320, 14), "medium": Size(480, 18), "large": Size(640, 22)}


def windows(length):
    """Of analysis and synthesis: their product, moved by hops, adds up to 1 over the last 2 * SLOPE samples. The first
    may be longer, which separates voices' harmonics better at the same delay."""
    rise = np.sin(np.pi / 2 * (np.arange(length - SLOPE) + 0.5) / (length - SLOPE))
    fall = np.cos(np.pi / 2 * (np.arange(SLOPE) + 0.5) / SLOPE)
    analysis = np.concatenate([rise, fall])
    product = np.sin(np.pi * (np.arange(2 * SLOPE) + 0.5) / (2 * SLOPE)) ** 2 * HOP / SLOPE
    return analysis, product / analysis[-2 * SLOPE:]


def transforms(length):
    """Frame to spectrum, real parts above imaginary ones, and spectrum to the last 2 * SLOPE samples of a frame."""
    bins = length // 2 + 1
    analysis, synthesis = windows(length)
    gain = 1 / np.sqrt(np.sum(analysis ** 2))
    each = waves(np.arange(bins), length)
    twice = np.full(2 * bins, 2.0)
    twice[[0, bins - 1, bins, -1]] = 1
    return gain * analysis * each, (synthesis * (twice[:, None] * each / (length * gain))[:, -2 * SLOPE:]).T


def bands_of_bins(bins, bands):
    """bands x bins, triangles that add up to 1 at each bin; their distance grows with frequency from 500 Hz on."""
    top = np.log1p(RATE_HZ / 2 / 500)
    peaks = np.expm1(np.linspace(0, top, bands)) / np.expm1(top) * (bins - 1)
    place = np.interp(np.arange(bins), peaks, np.arange(bands))
    return np.maximum(0, 1 - np.abs(place - np.arange(bands)[:, None]))


def smoothing(bins, weights):
    """bins x bins: weighted mean of neighbours; those beyond the ends count as the end."""
    matrix = np.zeros((bins, bins))
    for bin in range(bins):
        for offset, weight in enumerate(weights, -(len(weights) // 2)):
            matrix[bin, np.clip(bin + offset, 0, bins - 1)] += weight
    return matrix


class Enhancer(SignalNetwork):
    """Row 0: the input, late; row 1: enhanced. Switching, row 1 is mild and row 2 strong."""

    def __init__(self, size, switching=False):
        super().__init__(ninput=1, noutput=3 if switching else 2)
        self.bins, self.bands = size.window // 2 + 1, size.bands
        self.split_into_bins(size.window)
        self.find_excess()
        self.join(self.mask(), size.window)
        self.mix((MILD_FLOOR, STRONG_FLOOR) if switching else (FLOOR,))

    def split_into_bins(self, window):
        forward, _ = transforms(window)
        self.cut_into_hops("hops", "_input", HOP)
        self.convolution("spectrum", "hops", forward, window // HOP)
        self.power("power", "spectrum", self.bins)

    def find_excess(self):
        """Steps from the noise to each bin. A band without history lacks nothing to full scale, so that silence before
        the stream isn't taken for its noise."""
        to_bands = bands_of_bins(self.bins, self.bands)
        self.along_time("steady bin power", "power", NEAR_HOPS, self.bins)
        self.logarithm("bin level", "steady bin power")

        self.product("band power", "power", to_bands / to_bands.sum(1, keepdims=True))
        self.logarithm("negative band level", "band power", sign=-1)
        self.layer("lack", "Bias", "negative band level", bias=np.full(self.bands, STEPS))
        self.along_time("steady lack", "lack", np.full(BAND_HOPS, 1 / BAND_HOPS), self.bands)
        most = self.most_lately("most lack", "steady lack", NOISE_STAGES, self.bands)
        bias = NOISE_BIAS_DB / STEP_DB / np.sqrt(to_bands.sum(1))
        self.product("minus noise", most, to_bands.T, -STEPS - to_bands.T @ bias)
        self.layer("excess", "Merge", "bin level", "minus noise", mode="add")

    def mask(self):
        """Of each bin, 0 to 1; tells the layer's id."""
        share = AROUND_SHARE / (1 - AROUND_SHARE)
        self.product("around", "excess", share * smoothing(self.bins, AROUND_BINS))
        self.layer("presence", "Merge", "excess", "around", mode="add")
        self.layer("mask", "Sigmoid", "presence", slope=MASK_SLOPE * STEP_DB * (1 - AROUND_SHARE),
                   bias=MASK_SLOPE * MASK_CENTRE_DB)
        return "mask"

    def join(self, mask, window):
        _, backward = transforms(window)
        for part in ("real", "imaginary"):
            self.layer(f"masked {part}", "Merge", f"power {part}", mask, mode="product")
        self.layer("masked", "Concat", "masked real", "masked imaginary")
        kernel = 2 * SLOPE // HOP
        self.taps_along_time("masked hops", "masked", taps(backward, kernel, newest_first=True), kernel)
        self.layer("masked samples", "TransposeTDNN", "masked hops", kernel=HOP, stride=HOP,
                   weight=taps(np.eye(HOP), HOP), bias=[0])

    def mix(self, floors):
        self.along_time("delayed", "_input", (1, 0), 1, dilation=DELAY)
        self.layer("both", "Concat", "delayed", "masked samples")
        self.product("rows", "both", [[1, 0], *([floor, 1 - floor] for floor in floors)])
        self.link("rows", "_output")
