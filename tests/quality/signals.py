"""Sounds for the quality rig: speech cut from recordings with truth tables, noise, rooms, WAV files."""
import csv
import glob
import os
import struct

import numpy as np

RATE = 16000  # Hz, of all material unless a case says otherwise
HOP = 0.01    # seconds, of the bins that levels are taken from


def db(power):
    return 10 * np.log10(np.maximum(power, 1e-14))


def gain_of(level_db):
    return 10 ** (level_db / 20)


def read_wav(path):
    """Samples (frames by channels, full scale 1.0) and rate of a WAV file of 16 to 32 bits or floats."""
    data = open(path, 'rb').read()
    at, coding = 12, None
    while at + 8 <= len(data):
        name, size = data[at:at + 4], struct.unpack('<I', data[at + 4:at + 8])[0]
        if name == b'fmt ':
            coding, channels, rate, _, _, bits = struct.unpack('<HHIIHH', data[at + 8:at + 24])
            if coding == 0xfffe:
                coding = struct.unpack('<H', data[at + 32:at + 34])[0]
        elif name == b'data':
            body = data[at + 8:at + 8 + size]
            break
        at += 8 + size + size % 2
    if coding == 3:
        x = np.frombuffer(body[:len(body) // 4 * 4], '<f4').astype(float)
    elif bits == 24:
        b = np.frombuffer(body[:len(body) // 3 * 3], np.uint8).reshape(-1, 3).astype(np.int32)
        x = ((b[:, 0] << 8 | b[:, 1] << 16 | b[:, 2] << 24) >> 8) / 2.0 ** 23
    else:
        x = np.frombuffer(body, {16: '<i2', 32: '<i4'}[bits]) / 2.0 ** (bits - 1)
    return x[:len(x) // channels * channels].reshape(-1, channels), rate


def write_wav(path, x, rate, bits=16):
    """bits: 16 or 24 (rounded, no dither), 32 for floats."""
    x = x.reshape(len(x), -1)
    if bits == 32:
        coding, body = 3, x.astype('<f4').tobytes()
    else:
        top = 2.0 ** (bits - 1)
        q = np.clip(np.rint(x * top), -top, top - 1).astype('<i4')
        body = q.astype('<i2').tobytes() if bits == 16 else \
            q.reshape(-1, 1).view(np.uint8)[:, :3].tobytes()
        coding = 1
    block = x.shape[1] * bits // 8
    head = struct.pack('<4sI4s4sIHHIIHH4sI', b'RIFF', 36 + len(body), b'WAVE', b'fmt ', 16, coding,
                       x.shape[1], rate, rate * block, block, bits, b'data', len(body))
    with open(path, 'wb') as file:
        file.write(head + body)


def resample(x, old, new):
    """Of a mono signal, in the frequency domain."""
    if old == new:
        return x
    n = int(len(x) * new / old)
    spectrum = np.fft.rfft(x)
    kept = np.zeros(n // 2 + 1, complex)
    count = min(len(spectrum), len(kept))
    kept[:count] = spectrum[:count]
    return np.fft.irfft(kept, n) * n / len(x)


def fast_length(least):
    """The next length that a Fourier transform is quick for: a power of 2, 1.25, 1.5 or 1.875 times one."""
    power = 1 << int(np.ceil(np.log2(least)))
    return next(n for n in (power * 5 // 8, power * 3 // 4, power * 15 // 16, power) if n >= least)


def in_bands(x, rate, responses):
    """A mono signal through filters, each given as a function of the frequency in Hz."""
    n = fast_length(len(x) + rate // 5)
    spectrum, frequency = np.fft.rfft(x, n), np.fft.rfftfreq(n, 1 / rate)
    for response in responses:
        yield np.fft.irfft(spectrum * response(frequency), n)[:len(x)]


def in_band(x, rate, response):
    return next(in_bands(x, rate, (response,)))


def k_weighting(rate):
    """The two sections of ITU-R BS.1770 as a function of the frequency."""
    def section(coefficients, z):
        b0, b1, b2, a1, a2 = coefficients
        return (b0 + b1 * z + b2 * z * z) / (1 + a1 * z + a2 * z * z)

    def response(frequency):
        z = np.exp(-2j * np.pi * frequency / rate)
        k, q = np.tan(np.pi * 1681.974450955533 / rate), 0.7071752369554196
        vh = 10 ** (3.999843853973347 / 20)
        vb, a0 = vh ** 0.4996667741545416, 1 + k / q + k * k
        shelf = ((vh + vb * k / q + k * k) / a0, 2 * (k * k - vh) / a0, (vh - vb * k / q + k * k) / a0,
                 2 * (k * k - 1) / a0, (1 - k / q + k * k) / a0)
        k, q = np.tan(np.pi * 38.13547087602444 / rate), 0.5003270373238773
        a0 = 1 + k / q + k * k
        high = (1.0, -2.0, 1.0, 2 * (k * k - 1) / a0, (1 - k / q + k * k) / a0)
        return section(shelf, z) * section(high, z)
    return response


def voice_band(frequency):
    """200 to 5000 Hz, where a high-pass filter does not look like a change of gain."""
    f = np.maximum(frequency, 1e-9)
    return 1 / (1 + (200 / f) ** 4) ** 0.5 / (1 + (f / 5000) ** 4) ** 0.5


def filtered_bins(x, rate, responses):
    """Power of each bin behind each filter, summed over the channels."""
    step = int(round(HOP * rate))
    count = len(x) // step
    sums = [np.zeros(count) for _ in responses]
    for c in range(x.shape[1]):
        for total, band in zip(sums, in_bands(x[:, c], rate, responses)):
            total += np.mean(np.square(band[:count * step].reshape(count, step)), axis=1)
    return sums


def bins_of(x, rate, response):
    return filtered_bins(x, rate, (response,))[0]


def gated_level(bins):
    """Level of the speech in a stretch, dB: blocks of 100 ms, those 10 dB below the mean left out."""
    width = min(10, len(bins))
    sums = np.cumsum(np.concatenate(([0.0], bins)))
    blocks = ((sums[width:] - sums[:-width]) / width)[::max(1, width // 2)]
    blocks = blocks[db(blocks) > -90]
    if len(blocks) == 0:
        return -90.0
    return float(db(np.mean(blocks[blocks > 0.1 * np.mean(blocks)])) - 0.691)


def level_of(x, rate):
    return gated_level(bins_of(x.reshape(len(x), -1), rate, k_weighting(rate)))


def speech_turns(folder):
    """{speaker: [turns, mono, at RATE, of level 0 dB]} of the recordings with truth tables."""
    turns = {}
    for truth in sorted(glob.glob(os.path.join(folder, '*.truth.csv'))):
        x, rate = read_wav(truth.replace('.truth.csv', '.wav'))
        mono = x.mean(axis=1)
        for span in csv.DictReader(open(truth, newline='')):
            if span['kind'] == 'speech':
                part = mono[int(float(span['start']) * rate):int(float(span['end']) * rate)]
                part = resample(part, rate, RATE)
                turns.setdefault(span['speaker'], []).append(part / gain_of(level_of(part, RATE)))
    return turns


def noise(rng, seconds, level_db, tilt=0.5, low=40, high=20000, rate=RATE):
    """Noise of the given RMS level; its spectrum falls by 6 dB x tilt an octave."""
    x = rng.standard_normal(int(seconds * rate))
    def shape(f):
        f = np.maximum(f, 1e-9)
        return (f / 1000 + 1e-3) ** -tilt / (1 + (low / f) ** 8) ** 0.5 / (1 + (f / high) ** 8) ** 0.5
    x = in_band(x, rate, shape)
    return x * gain_of(level_db) / np.sqrt(np.mean(x * x))


def room(rng, rt60_s, ratio_db, rate=RATE):
    """An impulse response: a direct sound, and noise that decays by 60 dB in rt60_s behind 5 ms."""
    t = np.arange(int(rt60_s * rate)) / rate
    tail = rng.standard_normal(len(t)) * 10 ** (-3 * t / rt60_s)
    tail[:int(0.005 * rate)] = 0
    tail *= gain_of(-ratio_db) / np.sqrt(np.sum(tail * tail))
    tail[0] = 1.0
    return tail


def convolve(x, response):
    n = 1 << int(np.ceil(np.log2(len(x) + len(response))))
    return np.fft.irfft(np.fft.rfft(x, n) * np.fft.rfft(response, n), n)[:len(x)]
