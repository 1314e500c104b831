"""Voices that no constant of the program was chosen on: espeak-ng's, and those of the corpus at other speeds."""
import os
import subprocess
import tempfile

import numpy as np

from signals import RATE, gain_of, level_of, read_wav, resample

SENTENCES = (
    'The river rose slowly through the night, and by morning the lower fields lay under a hand of water.',
    'Nobody had asked him, but he told us anyway.',
    'We counted eleven boats, then twelve; the last of them had lost its mast and most of its paint.',
    'Is that what you wanted to hear? I do not think so.',
    'On Thursdays the market begins at six, which is far too early for me, and ends before anyone is hungry.',
    'She turned the page.',
    'A bridge is only as strong as the people who look after it, my grandfather used to say, and he built three.',
    'There were pears, a loaf of dark bread, some cheese, and a letter that had been opened and closed again.',
    'Well, perhaps. Let us wait until the others arrive before we decide anything at all.',
    'He speaks quickly when he is nervous, and slowly when he is sure, so that one always knows.',
)
# espeak-ng's voice, words a minute, pitch (0 to 99).
VOICES = {'amy': ('en-gb+f2', 150, 55), 'ben': ('en-us+m3', 170, 38), 'cleo': ('en-us+f4', 195, 60),
          'dirk': ('de+m7', 140, 30), 'eva': ('fr-fr+f5', 160, 50), 'finn': ('en-gb-scotland+m5', 185, 45),
          'gil': ('es+m1', 150, 35), 'hush': ('en-us+whisper', 150, 50)}
SPEEDS = (0.84, 1.21)  # of the corpus' own voices, which moves their pitch with it


def spoken(voice, speed, pitch, sentence, rng, folder):
    """A sentence at level 0 dB, its words up to 3 dB louder and softer, falling towards the end."""
    path = os.path.join(folder, 'sentence.wav')
    subprocess.run(['espeak-ng', '-v', voice, '-s', str(speed), '-p', str(pitch), '-w', path, sentence],
                   check=True, capture_output=True)
    x, rate = read_wav(path)
    x = resample(x[:, 0], rate, RATE)
    heard = np.flatnonzero(np.abs(x) > 0.02 * np.max(np.abs(x)))
    x = x[heard[0]:heard[-1] + 1]
    points = np.arange(0, len(x) + RATE, RATE // 2)
    stress = rng.uniform(-3, 3, len(points)) - 2 * points / len(x)
    x = x * gain_of(np.interp(np.arange(len(x)), points, stress))
    return x / gain_of(level_of(x, RATE))


def other_voices(turns, rng):
    """{name: [sentences, mono, at RATE, of level 0 dB]}; nothing where espeak-ng is not installed."""
    voices = {}
    try:
        with tempfile.TemporaryDirectory() as folder:
            for name, (voice, speed, pitch) in VOICES.items():
                order = rng.permutation(len(SENTENCES))
                voices[name] = [spoken(voice, speed, pitch, SENTENCES[i], rng, folder) for i in order]
    except FileNotFoundError:
        return {}
    for i, (name, takes) in enumerate(sorted(turns.items())):
        parts = [t[int(0.9 * RATE):] for t in takes if len(t) > 3 * RATE]  # begins within a word
        speed = SPEEDS[i % len(SPEEDS)]
        voices['real %d' % i] = [t / gain_of(level_of(t, RATE))
                                 for t in (resample(p, RATE, int(RATE / speed)) for p in parts)]
    return voices
