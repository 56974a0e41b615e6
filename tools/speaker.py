"""Networks that tell voices apart by their pitch, and an enhancer that keeps one of them; tools/build-models says how
and how well.

Both kinds look at speech through the same layers:

  lines       frames of 50 ms to a spectrum with a line every 20 Hz, logarithmic, so that level changes nothing
  rise        of each line over the lowest that it had in the last 1.3 s: a hum has none
  salience    of each pitch, how much the rises follow its harmonics: products with cosines that are free of what the
              slow course of a spectrum gives
  pitch       Softmax of the saliences beside a fixed one that stands for a frame without pitch
"""

from enhancer import HOP, Enhancer
from require_numpy import np
from signal_network import RATE_HZ, STEPS, SignalNetwork, waves

FRAME = 800  # samples
LINES_HZ = np.arange(60, 1601, 20)
LOWEST_PITCH_HZ, HIGHEST_PITCH_HZ = 70, 380
SLOW_HZ = 600  # what repeats in more than this is the course of the spectrum
ODD_SHARE = 0.7  # by which odd harmonics count more, or the voice of twice the pitch would do as well
UNVOICED, SHARPNESS = 4.5, 2.0  # the salience that a frame without pitch has; of the Softmax
LOW_S, LOW_STAGES = 0.12, 8  # that a line's level is averaged over; its lowest of the last 2 ** 8 hops

ENCODER_HOP = 160
VOICED_WEIGHT = 12.0  # exponent of a voiced frame's weight in the mean, against one without pitch
NEAR_OCTAVES = 1 / 6  # pitches on both sides that count as the same
OWN_SHARE, OWN_SLOPE = 0.08, 20.0  # of the talk, from which a pitch counts as the speaker's

SCORE_HOPS, SCORE_DECAY = 80, 16.0  # that tell whose turn it is, and in how many of them an old one fades
FOREIGN_START, FOREIGN_SLOPE = 0.03, 8.0  # of the score, from which and how fast the mask closes

PITCHES = {"small": 40, "medium": 52, "large": 64}


def pitches_hz(pitches):
    return np.geomspace(LOWEST_PITCH_HZ, HIGHEST_PITCH_HZ, pitches)


def combs(pitches):
    """pitches x lines, rows of norm 1: noise gives each pitch the same spread of saliences."""
    lines = LINES_HZ
    slow = np.arange(2 * (lines[-1] - lines[0]) // SLOW_HZ + 1)
    course, _ = np.linalg.qr(np.cos(np.pi / len(lines) * np.outer(np.arange(len(lines)) + 0.5, slow)))
    periods = 2 * np.pi * lines / pitches_hz(pitches)[:, None]
    rows = np.cos(periods) - ODD_SHARE * np.cos(periods / 2)
    rows -= rows @ course @ course.T
    return rows / np.linalg.norm(rows, axis=1, keepdims=True)


def near_pitches(pitches):
    """pitches x pitches: 1 within half of NEAR_OCTAVES, falling to 0 at NEAR_OCTAVES."""
    octaves = np.log2(pitches_hz(pitches))
    return np.clip(2 - 2 * np.abs(octaves - octaves[:, None]) / NEAR_OCTAVES, 0, 1)


def find_pitch(network, pitches, hop_samples):
    """From the layer `hops` to `pitch`: the probability of each pitch and, in the last row, of none."""
    lines = len(LINES_HZ)
    window = np.hanning(FRAME + 2)[1:-1]
    window /= np.linalg.norm(window)
    network.convolution("lines", "hops", window * waves(LINES_HZ * FRAME / RATE_HZ, FRAME), FRAME // hop_samples)
    network.power("line power", "lines", lines)
    network.logarithm("line level", "line power")
    network.product("line lack", "line level", -np.eye(lines), STEPS)
    steady = round(LOW_S * RATE_HZ / hop_samples)
    network.along_time("steady line lack", "line lack", np.full(steady, 1 / steady), lines)
    most = network.most_lately("most line lack", "steady line lack", LOW_STAGES - hop_samples // HOP + 1, lines)
    network.layer("rise", "Merge", "line level", most, mode="add")  # and STEPS more, which the combs don't see
    network.product("salience", "rise", np.vstack([combs(pitches), np.zeros(lines)]),
                    np.append(np.zeros(pitches), UNVOICED))
    network.layer("pitch", "Softmax", "salience", temperature=1 / SHARPNESS)


class SpeakerEncoder(SignalNetwork):
    """Of a whole recording one column: for each pitch, from -1 for one that the speaker never has to 1."""

    def __init__(self, pitches):
        super().__init__(ninput=1, noutput=pitches)
        self.cut_into_hops("hops", "_input", ENCODER_HOP)
        find_pitch(self, pitches, ENCODER_HOP)
        voicing = np.append(np.zeros(pitches), -2.0)
        self.layer("of voiced frames", "SimpleAttention", "pitch", weight=voicing[None], bias=[1],
                   context=[VOICED_WEIGHT / 2 / np.tanh(1)])
        self.product("shares", "of voiced frames", np.pad(near_pitches(pitches), ((0, 0), (0, 1))))
        self.layer("own", "Tanh", "shares", slope=OWN_SLOPE, bias=OWN_SLOPE * OWN_SHARE)
        self.link("own", "_output")


class TargetEnhancer(Enhancer):
    """Closes the mask while pitches are heard that the layer prod1 has below 0. At first it has none."""

    def __init__(self, size, pitches):
        self.pitches = pitches
        super().__init__(size)

    def mask(self):
        voice, pitches = super().mask(), self.pitches
        find_pitch(self, pitches, HOP)
        self.layer("voiced", "Slice", "pitch", start=0, end=pitches - 1)
        self.layer("prod1", "Prod", "voiced", bias=np.ones(pitches))  # as if all were own
        self.product("foreign", "prod1", -np.ones((1, pitches)))
        age = np.arange(SCORE_HOPS)[::-1]
        weights = np.exp(-age / SCORE_DECAY)
        self.along_time("foreign lately", "foreign", weights / weights.sum(), 1)
        self.product("foreign beyond doubt", "foreign lately", [[1]], -FOREIGN_START)
        self.layer("foreign excess", "ReLU", "foreign beyond doubt")
        self.layer("closing", "Tanh", "foreign excess", slope=FOREIGN_SLOPE)
        self.product("open", "closing", -np.ones((self.bins, 1)), 1)
        self.layer("speaker's mask", "Merge", voice, "open", mode="product")
        return "speaker's mask"
