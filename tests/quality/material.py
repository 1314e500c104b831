"""The recordings of the quality rig: each a signal, its rate and the truth about its spans."""
import numpy as np

from signals import RATE, convolve, gain_of, noise, room


class Recording:
    """Frames by channels, with spans (start_s, end_s, speaker, kind); kind: speech or pause."""

    def __init__(self, name, x, spans, rate=RATE, bits=24):
        self.name, self.x, self.spans, self.rate, self.bits = name, x.reshape(len(x), -1), spans, rate, bits

    def peak_db(self):
        return 20 * np.log10(np.max(np.abs(self.x)))


def conversation(turns, order, levels, pauses):
    """Turns one after the other. order: speakers; levels: dB by speaker; pauses: seconds behind each turn."""
    parts, spans, at, used = [np.zeros(int(0.6 * RATE))], [(0.0, 0.6, '', 'pause')], 0.6, {}
    for speaker, pause in zip(order, pauses):
        takes = turns[speaker]
        x = takes[used.get(speaker, 0) % len(takes)] * gain_of(levels[speaker])
        used[speaker] = used.get(speaker, 0) + 1
        silence = np.zeros(int(pause * RATE))
        parts += [x, silence]
        end = at + len(x) / RATE
        spans += [(at, end, speaker, 'speech'), (end, end + len(silence) / RATE, '', 'pause')]
        at = end + len(silence) / RATE
    return np.concatenate(parts), spans


def speakers_of(turns):
    return sorted(turns)


def talk(turns, rng, count=12, gap_db=8, pause_s=(0.3, 0.7), top_db=-22.0):
    """Two speakers in turn, gap_db apart."""
    a, b = speakers_of(turns)[:2]
    order = [a, b] * (count // 2)
    return conversation(turns, order, {a: top_db, b: top_db - gap_db}, rng.uniform(*pause_s, count))


def pause_cases(turns, rng, lengths=(3, 10, 30, 120), tones=(-42, -46, -50, -60)):
    for tone in tones:
        for length in lengths:
            if length > 30 and tone not in (-42, -50):
                continue  # long, and like its neighbours
            a, b = speakers_of(turns)[:2]
            order = [a, b, b, a, a, b, a, b]
            pauses = [0.5, length, 0.5, length, 0.4, 0.6, length, 0.6]
            x, spans = conversation(turns, order, {a: -22.0, b: -30.0}, pauses)
            yield Recording('pause %d s, tone %d' % (length, tone),
                            x + noise(rng, len(x) / RATE, tone)[:len(x)], spans)


def level_cases(turns, rng, gains=(0, -10, -20, -30, -40, -50)):
    x, spans = talk(turns, rng)
    x = x + noise(rng, len(x) / RATE, -72)[:len(x)]
    for bits in (24, 32, 16):
        for gain in gains:
            yield Recording('level %d dB, %s' % (gain, {32: 'float'}.get(bits, '%d bit' % bits)),
                            x * gain_of(gain), spans, bits=bits)


def room_cases(turns, rng, rooms=((0.3, 6), (0.5, 3), (0.8, 3), (0.8, -3), (1.2, 0), (1.2, -3), (1.8, 0),
                                  (1.8, -3), (2.5, 0), (2.5, -3))):
    for rt60, ratio in rooms:
        x, spans = talk(turns, rng, gap_db=12)
        x = convolve(x, room(rng, rt60, ratio))
        yield Recording('room RT60 %.1f s, D/R %+d' % (rt60, ratio),
                        x * 0.5 + noise(rng, len(x) / RATE, -70)[:len(x)], spans)


def rumble_cases(turns, rng, levels=(-24, -18, -12)):
    for level in levels:
        x, spans = talk(turns, rng, gap_db=8, top_db=-26)
        gusts = noise(rng, len(x) / RATE, level, tilt=1.5, low=8, high=110)[:len(x)]
        slow = np.interp(np.arange(len(x)), np.arange(0, len(x) + RATE, RATE),
                         rng.uniform(0.4, 1.4, len(x) // RATE + 2))
        yield Recording('rumble %d dBFS' % level, x + gusts * slow, spans)


def music(rng, seconds, level_db):
    """Chords that change every two seconds, of decaying partials with a beat twice a second."""
    t = np.arange(int(seconds * RATE)) / RATE
    x = np.zeros(len(t))
    for start in range(0, int(seconds) + 1, 2):
        part = slice(start * RATE, min(len(t), (start + 2) * RATE))
        for note in rng.choice(np.arange(45, 72), 4, replace=False):
            f = 440 * 2 ** ((note - 69) / 12)
            for k in range(1, 6):
                x[part] += np.sin(2 * np.pi * f * k * t[part]) / k
    x *= 0.6 + 0.4 * np.exp(-4 * ((t * 2) % 1))
    return x * gain_of(level_db) / np.sqrt(np.mean(x * x))


def bed_cases(turns, rng, below=(20, 30)):
    for distance in below:
        x, spans = talk(turns, rng, gap_db=12)
        yield Recording('music bed %d dB under' % distance,
                        x + music(rng, len(x) / RATE, -22 - distance)[:len(x)], spans)


def panel_cases(turns, rng):
    """Every speaker at a level of his own, phone-like noise, and turns hard left and right."""
    names = speakers_of(turns)
    levels = {name: -20.0 - 7 * i for i, name in enumerate(names)}
    order = list(rng.permutation(names * 6))
    x, spans = conversation(turns, order, levels, rng.uniform(0.2, 0.9, len(order)))
    yield Recording('panel', x + noise(rng, len(x) / RATE, -65)[:len(x)], spans)
    x, spans = talk(turns, rng, count=16, gap_db=10)
    yield Recording('interview, noise -50', x + noise(rng, len(x) / RATE, -50, tilt=0.2)[:len(x)], spans)
    x, spans = talk(turns, rng, count=14, gap_db=9)
    sides = np.zeros((len(x), 2))
    first = speakers_of(turns)[0]
    for start, end, speaker, kind in spans:
        part = slice(int(start * RATE), int(end * RATE))
        sides[part, 0 if speaker == first else 1] = x[part]
    sides += np.stack([noise(rng, len(x) / RATE, -66)[:len(x)] for _ in range(2)], axis=1)
    yield Recording('hard-panned pair', sides, spans)
    x, spans = talk(turns, rng, count=2, gap_db=0)
    one = {'one': [t for name in names for t in turns[name]][:6]}
    x, spans = conversation(one, ['one'] * 6, {'one': -23.0}, [0.5] * 6)
    yield Recording('one voice', x + noise(rng, len(x) / RATE, -68)[:len(x)], spans)


def far_cases(turns, rng, gaps=(20, 30)):
    """Turns of one to four seconds, far apart: the loud voice hides the short turns of the other."""
    lengths = (1, 2, 3, 4, 1.5, 2.5)
    short = {name: [take[int(0.2 * RATE):int((0.2 + seconds) * RATE)]
                    for take, seconds in zip(takes * len(lengths), lengths)] for name, takes in turns.items()}
    a, b = speakers_of(turns)[:2]
    for gap in gaps:
        x, spans = conversation(short, [a, b] * 6, {a: -18.0, b: -18.0 - gap}, rng.uniform(0.15, 0.6, 12))
        yield Recording('short turns %d dB apart' % gap, x + noise(rng, len(x) / RATE, -78)[:len(x)], spans)


def original_cases(turns, rng):
    """The takes of each speaker in their own order, a pause between them, the second half 12 dB lower."""
    for name in speakers_of(turns):
        count = len(turns[name])
        one = {name: [take * gain_of(-12 * (2 * i >= count)) for i, take in enumerate(turns[name])]}
        x, spans = conversation(one, [name] * count, {name: -24.0}, [0.45] * count)
        yield Recording('reading, %s' % name, x + noise(rng, len(x) / RATE, -70)[:len(x)], spans)


def all_cases(turns, seed=1):
    """Every group, its random numbers its own, so that a group alone gives the same recordings."""
    groups = {'pauses': pause_cases, 'levels': level_cases, 'rooms': room_cases, 'rumble': rumble_cases,
              'bed': bed_cases, 'panel': panel_cases, 'far': far_cases, 'reading': original_cases}
    for number, (name, make) in enumerate(groups.items()):
        yield name, make(turns, np.random.default_rng(seed * 100 + number))
