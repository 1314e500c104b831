"""Uses that mypy has to accept, with the types that they have."""

from __future__ import annotations

from typing import Any

import numpy as np
import numpy.typing as npt

import quorvane


def prepare(audio: npt.NDArray[np.float32]) -> npt.NDArray[Any]:
    result: quorvane.Result = quorvane.level(audio, 48000, target=(-16.0, -1.0), progress=print)
    codes: list[str] = [finding.code for finding in result.findings]
    level: float = quorvane.measure(audio, 48000).integrated_lufs
    assert result.audio is not None and codes is not None and level < 0
    leveler = quorvane.Leveler(48000, dtype=np.int16, target="podcast")
    blocks: list[npt.NDArray[Any]] = list(leveler.blocks())
    tracks: list[quorvane.Result] = quorvane.level_together([audio, audio], 48000)
    assert tracks
    return np.concatenate([result.audio, *blocks])
