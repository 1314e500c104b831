"""Conversations for the rig: a track for each voice, with the others' spill, and who speaks when."""
import numpy as np

from signals import RATE, gain_of, noise, resample


class Talk:
    """tracks: mono signals; voices: each track's own voice alone, without coughs; turns: (start_s, end_s,
    voice); coughs: the same, of a listener."""

    def __init__(self, name, tracks, voices, turns, coughs, silent, spill):
        self.name, self.tracks, self.voices, self.turns, self.coughs, self.silent, self.spill = \
            name, tracks, voices, turns, coughs, silent, spill

    def alone(self, voice):
        """The parts of a voice's turns in which no one else speaks or coughs, half a second and longer."""
        return [p for t in self.turns if t[2] == voice for p in self.alone_in(t)]

    def alone_in(self, turn):
        pieces = [(turn[0], turn[1])]
        for a, b, other in self.turns + [(c[0] - 0.3, c[1] + 0.3, -1) for c in self.coughs]:
            if other != turn[2]:
                pieces = [p for s, e in pieces for p in ((s, min(e, a)), (max(s, b), e)) if p[1] - p[0] > 0.5]
        return pieces

    def overlaps(self):
        """(start, end, one voice, the other) where two speak, 0.3 s and longer."""
        found = []
        for i, (a, b, one) in enumerate(self.turns):
            for c, d, other in self.turns[i + 1:]:
                if one != other and min(b, d) - max(a, c) > 0.3:
                    found.append((max(a, c), min(b, d), one, other))
        return found


def voices_of(turns, count):
    """Takes of so many voices: the speakers, then the same a little higher or lower."""
    names = sorted(turns)
    voices = []
    for i in range(count):
        ratio = (1.0, 0.88, 1.14)[i // len(names)]
        takes = [t for t in turns[names[i % len(names)]] if len(t) < 9 * RATE]
        voices.append([resample(t, RATE, int(RATE * ratio)) for t in takes])
    return voices


def cough(rng):
    t = np.arange(int(0.5 * RATE)) / RATE
    return rng.standard_normal(len(t)) * (np.exp(-t * 12) + 0.5 * np.exp(-abs(t - 0.25) * 20))


def talk(turns, rng, name, count=2, spill=-20, apart=0, by='mic', floor=-60, seconds=60, silent=0, overlap=0.25):
    """by: what sets the voices apart, the microphones' gains or the voices."""
    voices = voices_of(turns, count)
    speaking = count - silent
    length = int((seconds + 12) * RATE)
    sources = [np.zeros(length) for _ in range(count)]
    coughing = [np.zeros(length) for _ in range(count)]
    spans, coughs, at, last, used = [], [], 0.8, -1, [0] * count
    while at < seconds:
        who = int(rng.choice([v for v in range(speaking) if v != last])) if speaking > 1 else 0
        take = voices[who][used[who] % len(voices[who])]
        used[who] += 1
        x = take * gain_of(rng.uniform(-3, 3))
        start = int(at * RATE)
        sources[who][start:start + len(x)] += x[:length - start]
        spans.append((at, at + len(x) / RATE, who))
        if len(spans) % 5 == 4 and speaking > 1:
            listener = (who + 1) % speaking
            c = cough(rng)
            c *= gain_of(-6) / np.sqrt(np.mean(c * c))
            place = int((at + 1.5) * RATE)
            coughing[listener][place:place + len(c)] += c
            coughs.append((at + 1.5, at + 2.0, listener))
        step = -rng.uniform(0.8, 1.8) if rng.uniform() < overlap and speaking > 1 else rng.uniform(0.2, 0.9)
        at += max(1.0, len(x) / RATE + step)
        last = who
    end = int((max(e for _, e, _ in spans) + 0.8) * RATE)
    tracks, own = [], []
    levels = [-22 - apart * v / max(1, count - 1) for v in range(count)]
    voice_db, mic_db = ([-22] * count, [l + 22 for l in levels]) if by == 'mic' else (levels, [0] * count)
    for i in range(count):
        x = np.zeros(length)
        for j in range(count):
            y = (sources[j] + coughing[j]) * gain_of(voice_db[j])
            if i != j:
                delay = int(rng.uniform(0.004, 0.030) * RATE)
                y = np.concatenate((np.zeros(delay), y[:-delay])) * gain_of(spill + rng.uniform(-1, 1))
            x += y
        x = x * gain_of(mic_db[i]) + noise(rng, length / RATE, floor)[:length]
        tracks.append(x[:end])
        own.append(sources[i][:end] * gain_of(voice_db[i] + mic_db[i]))
    return Talk(name, tracks, own, spans, coughs, list(range(speaking, count)), spill)


CASES = (
    dict(count=2, spill=-20), dict(count=2, spill=-12), dict(count=2, spill=-30, apart=20),
    dict(count=2, spill=-20, apart=20), dict(count=2, spill=-12, apart=10, by='voice'),
    dict(count=2, spill=-20, apart=10, floor=-50), dict(count=3, spill=-20, apart=12),
    dict(count=3, spill=-12, apart=6), dict(count=3, spill=-20, silent=1), dict(count=2, spill=-20, silent=1),
    dict(count=4, spill=-12, apart=10), dict(count=4, spill=-30, apart=20, floor=-65),
    dict(count=6, spill=-20, apart=15), dict(count=6, spill=-12), dict(count=2, spill=-6),
)


def all_talks(turns, seed=7):
    for number, case in enumerate(CASES):
        values = dict(count=2, spill=-20, apart=0, by='mic', floor=-60, silent=0, **{})
        values.update(case)
        name = '%(count)d tracks, %(spill)d dB, %(apart)d dB apart by %(by)s, noise %(floor)d' % values
        name += ', %d silent' % values['silent'] if values['silent'] else ''
        yield talk(turns, np.random.default_rng(seed * 1000 + number), name,
                   seconds=40 + 12 * values['count'], **case)
