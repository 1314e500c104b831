"""What recordings reach where that is less than wanted: no build may be worse than this.

A row leaves this table when what it names is reached. "twice" also stands for a recording that is not
reported as even the second time. Where no cause stands it is not known.
"""

HELD = {
    # A turn of a second, 5 to 7 dB under the louder ones beside it, costs more than a phrase of its own
    # gains; a lower price cuts sentences that fall at their end.
    'hardly a gap': {'sd': 2.2, 'onset': 0.85, 'lufs': 1.0},
    'noise 14 dB under': {'sd': 1.35},
    # One turn is so flat that no words are found in it; then the engine's curve is taken, which moves.
    'room 2.5 s, D/R -3': {'sd': 0.7, 'onset': 2.25, 'move': 1.1, 'lufs': 0.7},
    # One gain for each phrase follows the fade in steps.
    'a voice that moves away by 14 dB': {'onset': 0.85},
    # Others.
    'short turns 0 dB apart': {'sd': 0.62},
    'pause 3 s, tone -42': {'twice': 1.2},
    'pause 8 s, tone -48': {'after': 1.1},
    'pause 6 s, hum -46': {'after': 1.25},
    'rumble -12 dBFS': {'move': 1.2},
    'applause -22': {'sd': 0.65},
}
