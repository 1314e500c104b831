"""Material and the command for the tests."""

from __future__ import annotations

import os
import subprocess
import wave
from pathlib import Path

import numpy as np
import pytest

RATE = 16000


def speech(seconds: float, channels: int = 1, seed: int = 1) -> np.ndarray:
    """Bursts of noise whose level changes, as float64 (frames, channels)."""
    frames = int(seconds * RATE)
    t = np.arange(frames) / RATE
    level = np.where(t % 3 < 1.5, 0.05, 0.3) * np.where(t % 0.6 < 0.45, 1, 0.003)
    noise = np.random.default_rng(seed).uniform(-1, 1, (frames, channels))
    return level[:, None] * noise


def as_type(samples: np.ndarray, dtype: str) -> np.ndarray:
    if dtype.startswith("float"):
        return samples.astype(dtype)
    return (samples * np.iinfo(dtype).max).astype(dtype)


@pytest.fixture(scope="session")
def command() -> str:
    """The command of the build tree that the module comes from."""
    path = os.environ.get("QUORVANE_COMMAND", "")
    if not path:
        pytest.skip("QUORVANE_COMMAND does not name the command")
    return path


def write_wav(path: Path, audio: np.ndarray) -> None:
    """Writes int16 samples, (frames,) or (frames, channels)."""
    with wave.open(str(path), "wb") as file:
        file.setnchannels(1 if audio.ndim == 1 else audio.shape[1])
        file.setsampwidth(2)
        file.setframerate(RATE)
        file.writeframes(audio.tobytes())


def read_wav(path: Path, shape: tuple[int, ...]) -> np.ndarray:
    with wave.open(str(path), "rb") as file:
        return np.frombuffer(file.readframes(file.getnframes()), np.int16).reshape(shape)


def by_command(command: str, folder: Path, audio: np.ndarray, *words: str) -> np.ndarray:
    """What the command makes of a WAV file with these int16 samples."""
    source, target = folder / "in.wav", folder / "out.wav"
    write_wav(source, audio)
    subprocess.run(
        [command, "-q", "--no-config", *words, "-o", str(target), str(source)], check=True
    )
    return read_wav(target, audio.shape)
