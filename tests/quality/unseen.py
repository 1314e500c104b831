"""Recordings of voices, rooms and noises that no constant of the program was chosen on."""
import numpy as np

import voices as other
from material import Recording, conversation, music
from signals import RATE, convolve, gain_of, in_band, noise, resample, room


def with_noise(rng, x, level_db, **kind):
    return x + noise(rng, len(x) / RATE + 0.01, level_db, **kind)[:len(x)]


def hum(rng, seconds, level_db):
    """A ground loop of 50 Hz and its odd harmonics over a little hiss."""
    t = np.arange(int(seconds * RATE)) / RATE
    x = sum(np.sin(2 * np.pi * 50 * k * t + k) / k for k in (1, 3, 5, 7, 9)) + 0.1 * rng.standard_normal(len(t))
    return x * gain_of(level_db) / np.sqrt(np.mean(x * x))


def babble(rng, speakers, length, level_db):
    """Everybody at once, each from a place of their own in what they say."""
    x = np.zeros(length)
    for takes in speakers:
        said = np.concatenate(takes * 8)
        start = int(rng.integers(0, len(said) // 2))
        x += np.resize(said[start:], length)
    return x * gain_of(level_db) / np.sqrt(np.mean(x * x))


def clapping(rng, seconds, level_db):
    x = np.zeros(int(seconds * RATE))
    decay = np.exp(-np.arange(480) / 90.0)
    for at in rng.integers(0, len(x) - 480, int(seconds * 90)):
        x[at:at + 480] += decay * rng.standard_normal(480) * rng.uniform(0.3, 1)
    x *= np.minimum(1, np.minimum(np.arange(len(x)), np.arange(len(x))[::-1]) / (0.4 * RATE))
    return x * gain_of(level_db) / np.sqrt(np.mean(x * x))


def short(takes, seconds):
    return [t[int(0.3 * RATE):int((0.3 + s) * RATE)] for t, s in zip(takes * 3, seconds)]


class Cast:
    """Who speaks in a recording: the next voices of a shuffled list, so that all are heard."""

    def __init__(self, voices, rng):
        self.voices, self.rng = voices, rng
        self.names = [n for n in rng.permutation(sorted(voices)) if n != 'hush']
        self.at = 0

    def next(self, count):
        chosen = [self.names[(self.at + i) % len(self.names)] for i in range(count)]
        self.at += count
        return chosen

    def talk(self, levels, count=10, pause_s=(0.25, 1.1), voices=None):
        """One voice of each level, in random order, none twice in a row."""
        chosen = self.next(len(levels))
        order = []
        while len(order) < count:
            order += [n for n in self.rng.permutation(chosen) if not order or n != order[-1] or len(chosen) == 1]
        return conversation(voices or self.voices, order[:count], dict(zip(chosen, levels)),
                            self.rng.uniform(*pause_s, count))


def pauses(cast, rng):
    for seconds, tone, loud, quiet in ((4, -44, -20, -28), (8, -48, -24, -32), (25, -43, -22, -28),
                                       (60, -54, -20, -34), (100, -47, -23, -30)):
        a, b = cast.next(2)
        x, spans = conversation(cast.voices, [b, a, a, b, a, b, b, a], {a: loud, b: quiet},
                                [0.7, seconds, 0.3, seconds, 0.9, seconds, 0.4, 0.5])
        yield Recording('pause %d s, tone %d' % (seconds, tone), with_noise(rng, x, tone, tilt=1.0), spans)
    x, spans = conversation(cast.voices, [a, b, b, a, a, b], {a: -22.0, b: -29.0}, [6, 0.4, 6, 0.4, 6, 0.4])
    yield Recording('pause 6 s, hum -46', x + hum(rng, len(x) / RATE + 0.01, -46)[:len(x)], spans)


def gaps(cast, rng):
    for levels, floor in (((-20, -26), -70), ((-18, -32), -72), ((-22, -40), -80), ((-20, -24, -31, -37), -72),
                          ((-26, -26), -66)):
        x, spans = cast.talk(levels, 12)
        yield Recording('voices at ' + ' '.join('%d' % l for l in levels), with_noise(rng, x, floor), spans)
    for rate, bits in ((8000, 16), (24000, 24), (48000, 16)):
        x, spans = cast.talk((-21, -30), 8)
        yield Recording('rate %d' % rate, resample(with_noise(rng, x, -70), RATE, rate), spans, rate, bits)
    for gain, bits in ((-15, 24), (-35, 32), (-45, 16), (8, 32)):
        x, spans = cast.talk((-19, -27), 8)
        yield Recording('level %d dB, %d bit' % (gain, bits), with_noise(rng, x, -74) * gain_of(gain), spans, bits=bits)


def turns_of_all_lengths(cast, rng):
    for apart in (0, 10, 16, 25):
        a, b = cast.next(2)
        lengths = (1.4, 2.2, 1.1, 3.5, 1.8, 2.8)
        x, spans = conversation({n: short(cast.voices[n], lengths) for n in (a, b)}, [a, b] * 6,
                                {a: -19, b: -19 - apart}, rng.uniform(0.2, 0.8, 12))
        yield Recording('short turns %d dB apart' % apart, with_noise(rng, x, -76), spans)
    x, spans = cast.talk((-22, -30), 10, (0.05, 0.15))
    yield Recording('hardly a gap', with_noise(rng, x, -68), spans)
    a, = cast.next(1)
    x, spans = conversation(cast.voices, [a] * 10, {a: -20}, rng.uniform(0.4, 1.2, 10))
    x = x * gain_of(np.linspace(0, -14, len(x)))
    yield Recording('a voice that moves away by 14 dB', with_noise(rng, x, -74), spans)
    x, spans = conversation(cast.voices, [a] * 9, {a: -21}, [0.5, 3, 0.6, 4, 0.5, 3.5, 0.4, 2.8, 0.5])
    yield Recording('monologue with pauses', with_noise(rng, x, -52, tilt=1.0), spans)
    c, = cast.next(1)
    x, spans = conversation({a: cast.voices[a], c: short(cast.voices[c], [0.6] * 6)}, [a, c] * 6,
                            {a: -20, c: -32}, [0.3] * 12)
    yield Recording('single words of a listener', with_noise(rng, x, -72), [s for s in spans if s[2] != c])
    x, spans = conversation(cast.voices, ['hush', a] * 4, {'hush': -38, a: -20}, [0.6] * 8)
    yield Recording('whisper 18 dB under a voice', with_noise(rng, x, -76), spans)


def surroundings(cast, rng):
    for rt60, ratio in ((0.4, 0), (0.7, -3), (1.5, -3), (2.2, -3), (2.5, -3)):
        x, spans = cast.talk((-22, -32), 10)
        x = 0.5 * convolve(x, room(rng, rt60, ratio))
        yield Recording('room %.1f s, D/R %+d' % (rt60, ratio), with_noise(rng, x, -72), spans)
    for level in (-22, -15):
        x, spans = cast.talk((-25, -34), 10)
        wind = noise(rng, len(x) / RATE + 0.01, level, tilt=1.5, low=10, high=95)[:len(x)]
        slow = np.interp(np.arange(len(x)), np.arange(0, len(x) + RATE, RATE), rng.uniform(0.3, 1.5, len(x) // RATE + 2))
        yield Recording('wind %d' % level, x + wind * slow, spans)
    for ratio in (10, 14, 20):
        x, spans = cast.talk((-24, -24) if ratio == 10 else (-22, -28), 10)
        yield Recording('noise %d dB under' % ratio, with_noise(rng, x, -24 - ratio, tilt=0.3), spans)
    for below in (22, 28):
        x, spans = cast.talk((-21, -31), 10)
        crowd = babble(rng, list(cast.voices.values()), len(x), -21 - below)
        yield Recording('crowd %d dB under' % below, x + crowd, spans)
    x, spans = cast.talk((-22, -30), 10)
    yield Recording('music 25 dB under', x + music(rng, len(x) / RATE + 1, -47)[:len(x)], spans)
    x, spans = cast.talk((-22, -30), 10)
    hiss, first = np.zeros(len(x)), spans[1][2]
    for start, end, who, _ in spans:
        if who == first:
            part = slice(int((start - 0.2) * RATE), int((end + 0.2) * RATE))
            hiss[part] = noise(rng, 60, -50, tilt=0)[:len(hiss[part])]
    yield Recording('hiss under one voice', with_noise(rng, x + hiss, -74), spans)
    x, spans = cast.talk((-22, -31), 10)
    yield Recording('gaps of digital silence', x, spans)


def events(cast, rng):
    for level in (-14, -22, -30):
        a, b = cast.next(2)
        x, spans = conversation(cast.voices, [a, b, b, a, a, b, b, a], {a: -22, b: -31},
                                [0.5, 4, 0.5, 5, 0.4, 0.6, 4.5, 0.6])
        held = [s for s in spans if s[3] == 'pause' and s[1] - s[0] > 3]
        for start, end, _, _ in held:
            claps = clapping(rng, end - start - 0.6, level)
            x[int((start + 0.3) * RATE):][:len(claps)] += claps
        yield Recording('applause %d' % level, with_noise(rng, x, -68), [s for s in spans if s not in held])
    x, spans = cast.talk((-22, -30), 10)
    for at in rng.integers(RATE, len(x) - RATE, 14):
        x[at:at + 80] += 0.7 * np.exp(-np.arange(80) / 12.0) * np.sin(np.arange(80) * 0.9)
    yield Recording('knocks on the table', with_noise(rng, x, -70), spans)
    x, spans = cast.talk((-12, -28), 10)
    yield Recording('one voice clipped', np.clip(with_noise(rng, x, -70), -0.35, 0.35), spans)
    x, spans = cast.talk((-22, -29), 10)
    thin = in_band(x, RATE, lambda f: (f > 300) / (1 + (np.maximum(f, 1) / 3400) ** 16) ** 0.5)
    first = spans[1][2]
    for start, end, who, _ in spans:
        if who == first:
            part = slice(int(start * RATE), int(end * RATE))
            x[part] = thin[part]
    yield Recording('telephone and studio', with_noise(rng, x, -68), spans)
    x, spans = cast.talk((-20, -34), 10)
    sides, first = np.zeros((len(x), 2)), spans[1][2]
    for start, end, who, _ in spans:
        part = slice(int(start * RATE), int(end * RATE))
        sides[part, int(who == first)] = x[part]
    yield Recording('hard-panned, 14 dB apart', sides + np.stack([noise(rng, len(x) / RATE + 0.01, -68)[:len(x)]
                                                                  for _ in range(2)], 1), spans)
    x, spans = cast.talk((-21, -29), 8)
    ends = np.zeros(20 * RATE)
    x = with_noise(rng, np.concatenate([ends, x, ends]), -56)
    yield Recording('room tone at the ends', x, [(s + 20, e + 20, who, kind) for s, e, who, kind in spans])


def unseen_cases(turns, rng):
    voices = other.other_voices(turns, rng)
    if voices:
        cast = Cast(voices, rng)
        for make in (pauses, gaps, turns_of_all_lengths, surroundings, events):
            yield from make(cast, rng)
