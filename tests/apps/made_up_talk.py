"""Talk and noise for tests of models, how near one signal is to another, and the way through `sonivo enhance`."""

import os
import subprocess
import wave

import numpy as np

RATE = 16000
LEAD = 12800  # samples of silence ahead of the talk


def talk(seconds, rng, pitches=(95, 190), formants=1.0):
    """Syllables of gliding pitch with three resonances, and pauses between them; peak about 0.25. Lowest and highest
    pitch in Hz at the start of a syllable; a factor for the resonances, that of a smaller head is above 1."""
    voice = np.zeros(LEAD + int(seconds * RATE))
    at = LEAD
    while at < len(voice) - RATE // 2:
        length = int(RATE * rng.uniform(0.12, 0.3))
        t = np.arange(length) / RATE
        pitch = rng.uniform(*pitches) * (1 + 0.3 * rng.uniform(-1, 1) * t)
        phase = 2 * np.pi * np.cumsum(pitch) / RATE
        resonances = formants * rng.uniform((300, 900, 2200), (800, 2000, 3200))
        syllable = np.zeros(length)
        for k in range(1, int(4000 / 95)):
            f = k * pitch.mean()
            if f < 4000:
                gain = sum(1 / (1 + ((f - resonance) / 120) ** 2) for resonance in resonances) + 0.01
                syllable += gain * np.cos(k * phase + rng.uniform(0, 2 * np.pi))
        voice[at:at + length] = syllable / np.abs(syllable).max() * np.hanning(length) * 0.25
        at += length + int(RATE * rng.choice([0.02, 0.05, 0.25]))
    return voice


def pink(count, rng):
    spectrum = np.fft.rfft(rng.standard_normal(count))
    return np.fft.irfft(spectrum / np.sqrt(np.maximum(np.arange(len(spectrum)), count * 40 / RATE)), count)


def in_noise(clean, noise, snr_db):
    power = np.mean(clean[LEAD:] ** 2)
    return clean + noise / np.sqrt(np.mean(noise ** 2)) * np.sqrt(power * 10 ** (-snr_db / 10))


def segmental_snr(clean, test):
    frame, hop = 480, 120
    window = np.hanning(frame + 2)[1:-1] ** 2
    at = np.arange(0, len(clean) - frame + 1, hop)[:, None] + np.arange(frame)
    signal, noise = (clean[at] ** 2 * window).sum(1), ((clean - test)[at] ** 2 * window).sum(1)
    spoken = signal > 0
    return np.clip(10 * np.log10(signal[spoken] / np.maximum(noise[spoken], 1e-30)), -10, 35).mean()


def si_sdr(clean, test):
    a = test @ clean / (clean @ clean)
    return 10 * np.log10(a * a * (clean @ clean) / np.sum((a * clean - test) ** 2))


def level_db(x):
    return 10 * np.log10(np.mean(x ** 2))


def enhanced(sonivo, model, x, folder, *options):
    """What `sonivo enhance` makes of the samples, and what it prints."""
    source, result = os.path.join(folder, "in.wav"), os.path.join(folder, "out.wav")
    with wave.open(source, "wb") as file:
        file.setparams((1, 2, RATE, len(x), "NONE", ""))
        file.writeframes(np.round(np.clip(x, -1, 32767 / 32768) * 32768).astype("<i2").tobytes())
    run = subprocess.run([sonivo, "enhance", model, source, result, *options], check=True, capture_output=True,
                         text=True)
    with open(result, "rb") as file:
        return np.frombuffer(file.read()[-4 * len(x):], "<f4").astype(float), run.stdout
