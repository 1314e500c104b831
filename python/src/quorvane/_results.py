"""What a call returns."""

from __future__ import annotations

import html
import json
import math
from dataclasses import dataclass, field
from typing import Any

import numpy as np
import numpy.typing as npt

from quorvane._core import Core

_OUTCOMES = ("failed", "leveled", "unchanged", "measured", "limited")
_SEVERITIES = ("problem", "warning", "note")
_WIDTH, _HEIGHT = 480, 96  # of the picture in notebooks, in pixels


@dataclass(frozen=True)
class Loudness:
    """Levels of a recording. Those of silence are minus infinity, unknown ones are NaN."""

    integrated_lufs: float
    """ITU-R BS.1770-4, LUFS."""
    short_term_lufs: float
    """The greatest of 3 s, LUFS."""
    momentary_lufs: float
    """The greatest of 400 ms, LUFS."""
    range_lu: float
    """Loudness range after EBU Tech 3342, LU."""
    true_peak_dbtp: float
    sample_peak_dbfs: float
    rms_dbfs: float
    speech_lufs: float
    """Of the passages of speech, LUFS; NaN without findings or speech."""
    speech_passages_db: float
    """From the quietest passage of speech to the loudest, dB."""


@dataclass(frozen=True)
class Finding:
    """Something that a recording suffers from."""

    code: str
    severity: str
    """``"problem"``, ``"warning"`` or ``"note"``."""
    value: float
    unit: str
    detail: str
    sentence: str
    places: tuple[tuple[float, float], ...]
    """Begin and end in seconds."""


@dataclass(frozen=True)
class Passage:
    """A stretch that was leveled as one."""

    begin_s: float
    end_s: float
    level_db: float
    """dBFS before leveling."""
    gain_db: float


@dataclass(frozen=True, eq=False)
class GainCurve:
    """The gain that leveling applied: value ``i`` belongs to the time ``i * step_s``."""

    step_s: float
    gain_db: npt.NDArray[np.float64]

    def __len__(self) -> int:
        return len(self.gain_db)


@dataclass(frozen=True, eq=False)
class Result:
    """The result of a call. It can be pickled and is drawn in notebooks.

    Attributes
    ----------
    audio : numpy.ndarray or None
        With the type and the shape of the input; None where there is none in memory.
    rate : int
        Hz.
    outcome : str
        ``"leveled"``, ``"unchanged"``, ``"measured"`` or ``"limited"``.
    reason : str
        Why the audio was handed back unchanged.
    verdict : str
        The result in one or two sentences; ``""`` when nothing was measured.
    before, after : Loudness or None
        None where it was not measured.
    findings : tuple of Finding
        The gravest first.
    passages : tuple of Passage
    gain_curve : GainCurve
    notes : tuple of str
    facts : dict
        All that is known, with the keys of ``quorvane --json``.
    """

    audio: npt.NDArray[Any] | None
    rate: int
    outcome: str
    reason: str
    verdict: str
    before: Loudness | None
    after: Loudness | None
    findings: tuple[Finding, ...]
    passages: tuple[Passage, ...]
    gain_curve: GainCurve
    notes: tuple[str, ...]
    facts: dict[str, Any] = field(repr=False)

    def _repr_html_(self) -> str:
        """The verdict over a picture of the gain curve, for notebooks."""
        words = self.verdict or self.reason or self.outcome
        lines = [f"<p><b>{html.escape(words)}</b></p>", _picture(self.gain_curve)]
        for finding in self.findings:
            lines.append(
                f"<p>{html.escape(finding.severity)}: {html.escape(finding.sentence)}</p>"
            )
        return "<div>" + "".join(lines) + "</div>"


def _picture(curve: GainCurve) -> str:
    """The curve as SVG, with its limits beside it; empty without values."""
    finite = curve.gain_db[np.isfinite(curve.gain_db)]
    if len(finite) == 0:
        return ""
    low, high = float(finite.min()), float(finite.max())
    middle, span = (low + high) / 2, max(high - low, 6.0)
    step = max(1, len(curve) // _WIDTH)
    points = [
        f"{i * _WIDTH / len(curve):.1f},{_HEIGHT / 2 - (gain - middle) / span * (_HEIGHT - 16):.1f}"
        for i, gain in enumerate(curve.gain_db.tolist())
        if i % step == 0 and math.isfinite(gain)
    ]
    title = f"gain {low:+.1f} to {high:+.1f} dB over {len(curve) * curve.step_s:.1f} s"
    return (
        f'<svg width="{_WIDTH}" height="{_HEIGHT}" role="img" aria-label="{title}">'
        f'<title>{title}</title><polyline fill="none" stroke="#2a6fbb" stroke-width="1.5" '
        f'points="{" ".join(points)}"/></svg><p>{title}</p>'
    )


def _loudness(core: Core, moment: int) -> Loudness | None:
    values = core.loudness(moment)
    return None if values is None else Loudness(*values)


def result_of(core: Core, audio: npt.NDArray[Any] | None) -> Result:
    """All that a core's last call has found."""
    facts = json.loads(core.facts())
    return Result(
        audio=audio,
        rate=int(facts.get("sample_rate_hz", 0)),
        outcome=_OUTCOMES[core.outcome()],
        reason=core.reason(),
        verdict=core.verdict(),
        before=_loudness(core, 0),
        after=_loudness(core, 1),
        findings=tuple(
            Finding(code, _SEVERITIES[severity], *rest)
            for code, severity, *rest in core.findings()
        ),
        passages=tuple(Passage(*values) for values in core.passages()),
        gain_curve=GainCurve(*core.gain_curve()),
        notes=tuple(core.notes()),
        facts=facts,
    )
