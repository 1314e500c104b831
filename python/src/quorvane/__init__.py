"""Leveling, measuring and limiting of spoken word.

Arrays have the shape (frames,) or (frames, channels) and the type float32, float64 (full scale 1.0),
int16 or int32. Any strides will do. Results have the type and the shape of the input, and the
samples of the command ``quorvane`` to the bit. Calls free the interpreter for other threads.

>>> import numpy as np, quorvane
>>> t = np.arange(5 * 16000) / 16000
>>> voice = (0.1 + 0.3 * (t > 2.5)) * (t % 0.6 < 0.45) * np.sin(2 * np.pi * 200 * t)
>>> result = quorvane.level(voice.astype(np.float32), 16000)
>>> result.audio.dtype, result.audio.shape, result.outcome
(dtype('float32'), (80000,), 'leveled')
>>> round(quorvane.measure(result.audio, 16000).true_peak_dbtp) <= -1
True
"""

from __future__ import annotations

import os
from types import TracebackType
from typing import Any, Callable, Iterator, Sequence, Union

import numpy as np
import numpy.typing as npt

from quorvane._core import Core
from quorvane._core import version as __version__
from quorvane._errors import ArgumentError, Cancelled, Error, Unsupported
from quorvane._results import Finding, GainCurve, Loudness, Passage, Result, result_of

__all__ = [
    "ArgumentError",
    "Cancelled",
    "Error",
    "Finding",
    "GainCurve",
    "Leveler",
    "Loudness",
    "Passage",
    "Result",
    "Unsupported",
    "__version__",
    "level",
    "level_file",
    "level_together",
    "limit",
    "measure",
]

Target = Union[str, tuple[float, float], None]
"""A word of ``--for``, or the loudness in LUFS and the highest true peak in dBTP."""

Progress = Callable[[float], object]
_DEFAULT, _NOTHING, _LOUDNESS, _ALL = range(4)


def _target_word(target: Target) -> str | None:
    if target is None or isinstance(target, str):
        return target
    lufs, true_peak = target
    return f"lufs={float(lufs):f}:tp={float(true_peak):f}"


def _measuring(measure: bool | None) -> int:
    return _DEFAULT if measure is None else _ALL if measure else _NOTHING


def _core(
    target: Target = None,
    plain: bool = False,
    measure: int = _DEFAULT,
    second_thread: bool = False,
    replace: bool = False,
    tuning: Sequence[str] = (),
    memory_bytes: int = 0,
    scratch_folder: Union[str, os.PathLike[str]] = "",
    progress: Progress | None = None,
) -> Core:
    return Core(
        target=_target_word(target),
        plain=plain,
        measure=measure,
        second_thread=second_thread,
        replace=replace,
        tuning=list(tuning),
        memory_bytes=memory_bytes,
        scratch_folder=os.fspath(scratch_folder),
        progress=progress,
    )


def level(
    audio: npt.NDArray[Any],
    rate: int,
    *,
    target: Target = None,
    plain: bool = False,
    measure: bool | None = None,
    second_thread: bool = False,
    tuning: Sequence[str] = (),
    memory_bytes: int = 0,
    scratch_folder: Union[str, os.PathLike[str]] = "",
    progress: Progress | None = None,
) -> Result:
    """Level a recording.

    Parameters
    ----------
    audio : numpy.ndarray
        (frames,) or (frames, channels); float32, float64, int16 or int32. It is not changed.
    rate : int
        Hz.
    target : str or (float, float), optional
        What the result is for: ``"podcast"`` and the other words of ``--for``, or the loudness in
        LUFS and the highest true peak in dBTP.
    plain : bool
        The engine alone, as ``--plain``.
    measure : bool, optional
        Whether to measure and to look for findings; unless given, when not ``plain``.
    second_thread : bool
        Read ahead and measure on a second thread. The samples are the same.
    tuning : sequence of str
        Options of the engine, ``"--segment-tolerance=3"``.
    memory_bytes : int
        Bytes of audio up to which temporary data stays in memory; 0: 256 MiB.
    scratch_folder : path
        For the temporary data of longer audio; the system's unless given.
    progress : callable, optional
        Called with the fraction done, 0 to 1. An exception that it raises ends the call and comes
        out of it.

    Returns
    -------
    Result

    Raises
    ------
    Unsupported
        The type of the array, or its number of channels.
    ArgumentError
        An argument is out of range or a target is unknown.
    Error
        The audio is empty, holds a NaN or an infinity, or cannot be leveled.

    Examples
    --------
    >>> import numpy as np, quorvane
    >>> quorvane.level(np.zeros(16000, np.int16), 16000).outcome
    'unchanged'
    >>> quorvane.level(np.full(100, np.nan), 16000)
    Traceback (most recent call last):
        ...
    quorvane._errors.Error: the audio: the sample of frame 0, channel 0, both counted from 0, is infinite or not a number
    """
    core = _core(
        target,
        plain,
        _measuring(measure),
        second_thread,
        tuning=tuning,
        memory_bytes=memory_bytes,
        scratch_folder=scratch_folder,
        progress=progress,
    )
    return result_of(core, core.level(np.asanyarray(audio), rate))


def level_file(
    input: Union[str, os.PathLike[str]],
    output: Union[str, os.PathLike[str]],
    *,
    target: Target = None,
    plain: bool = False,
    replace: bool = False,
    second_thread: bool = False,
    tuning: Sequence[str] = (),
    progress: Progress | None = None,
) -> Result:
    """Level a file to a new file of the same format, with its metadata.

    The output appears whole or not at all; with ``replace`` in place of what is there. The result
    has no ``audio``. Raises as :func:`level` does, and :class:`Error` where a file cannot be read
    or written or the output exists.
    """
    core = _core(target, plain, _DEFAULT, second_thread, replace, tuning, progress=progress)
    core.level_file(os.fspath(input), os.fspath(output))
    return result_of(core, None)


def level_together(
    tracks: Sequence[npt.NDArray[Any]],
    rate: int,
    *,
    measure: bool | None = None,
    memory_bytes: int = 0,
    scratch_folder: Union[str, os.PathLike[str]] = "",
    progress: Progress | None = None,
) -> list[Result]:
    """Level the tracks of one conversation, a track for each voice, as ``--together`` does.

    Each voice is leveled by its own turns, and its spill on the other tracks goes down.

    Parameters
    ----------
    tracks : sequence of numpy.ndarray
        2 to 64 arrays of 1 or 2 channels, as for :func:`level`. Types and lengths may differ.
    rate : int
        Hz, of all tracks.
    measure, memory_bytes, scratch_folder, progress
        As for :func:`level`.

    Returns
    -------
    list of Result
        In the order of the tracks. :func:`limit` brings their sum to a target.

    Raises
    ------
    Unsupported, ArgumentError, Error
        As :func:`level` does; the sentence names the track.

    Examples
    --------
    >>> import numpy as np, quorvane
    >>> t = np.arange(20 * 16000) / 16000
    >>> words = (t % 0.6 < 0.45) * np.sin(2 * np.pi * 200 * t)
    >>> host, guest = 0.3 * words * (t % 8 < 4), 0.03 * words * (t % 8 >= 4)
    >>> [result.outcome for result in quorvane.level_together([host, guest], 16000)]
    ['leveled', 'leveled']
    >>> quorvane.level_together([host], 16000)
    Traceback (most recent call last):
        ...
    quorvane._errors.ArgumentError: 2 to 64 tracks of one conversation are leveled together, not 1
    """
    core = _core(
        measure=_measuring(measure),
        memory_bytes=memory_bytes,
        scratch_folder=scratch_folder,
        progress=progress,
    )
    leveled = core.level_together([np.asanyarray(track) for track in tracks], rate)
    results = []
    for index, audio in enumerate(leveled):
        core.select_track(index)
        results.append(result_of(core, audio))
    return results


def limit(
    audio: npt.NDArray[Any],
    rate: int,
    target: Target,
    *,
    progress: Progress | None = None,
) -> Result:
    """Bring a recording to a target with one gain and a true-peak limiter, without leveling.

    Examples
    --------
    >>> import numpy as np, quorvane
    >>> tone = 0.01 * np.sin(2 * np.pi * 440 * np.arange(48000) / 48000)
    >>> limited = quorvane.limit(tone, 48000, (-20, -1))
    >>> round(limited.after.integrated_lufs)
    -20
    """
    core = _core(target, progress=progress)
    return result_of(core, core.limit(np.asanyarray(audio), rate))


def measure(
    audio: npt.NDArray[Any],
    rate: int,
    *,
    speech: bool = True,
    second_thread: bool = False,
    progress: Progress | None = None,
) -> Loudness:
    """Measure a recording: loudness after ITU-R BS.1770-4 and EBU R128, and peaks.

    Parameters
    ----------
    audio, rate
        As for :func:`level`.
    speech : bool
        Also measure the levels of speech, which takes about as long as the rest.

    Examples
    --------
    >>> import numpy as np, quorvane
    >>> tone = 0.1 * np.sin(2 * np.pi * 997 * np.arange(5 * 48000) / 48000)
    >>> round(quorvane.measure(tone, 48000).integrated_lufs, 1)
    -23.0
    """
    core = _core(
        measure=_ALL if speech else _LOUDNESS, second_thread=second_thread, progress=progress
    )
    core.measure(np.asanyarray(audio), rate)
    loudness = result_of(core, None).before
    assert loudness is not None
    return loudness


class Leveler:
    """Levels a recording of unknown length that comes in blocks.

    Examples
    --------
    >>> import numpy as np, quorvane
    >>> with quorvane.Leveler(16000, dtype="int16") as leveler:
    ...     for _ in range(10):
    ...         leveler.write(np.zeros(1600, np.int16))
    ...     result = leveler.finish()
    ...     sum(len(block) for block in leveler.blocks(1000))
    16000
    """

    def __init__(
        self,
        rate: int,
        channels: int = 1,
        dtype: npt.DTypeLike = np.float32,
        *,
        target: Target = None,
        plain: bool = False,
        measure: bool | None = None,
        second_thread: bool = False,
        tuning: Sequence[str] = (),
        memory_bytes: int = 0,
        scratch_folder: Union[str, os.PathLike[str]] = "",
        progress: Progress | None = None,
    ) -> None:
        self._dtype = np.dtype(dtype)
        self._rate = rate
        self._channels = channels
        self._flat = channels == 1
        self._core = _core(
            target,
            plain,
            _measuring(measure),
            second_thread,
            tuning=tuning,
            memory_bytes=memory_bytes,
            scratch_folder=scratch_folder,
            progress=progress,
        )
        self._core.begin(self._dtype, rate, channels)

    def write(self, block: npt.NDArray[Any]) -> None:
        """Take the next frames: (frames,) or (frames, channels) of the leveler's type."""
        array = np.asanyarray(block)
        self._flat = array.ndim == 1
        self._core.write(array, self._rate)

    def finish(self) -> Result:
        """Level what was written. The result has no ``audio``: :meth:`read` it."""
        self._core.finish()
        return result_of(self._core, None)

    def read(self, frames: int) -> npt.NDArray[Any]:
        """Up to so many frames of the result; none at its end."""
        block = np.empty((frames, self._channels), self._dtype)
        block = block[: self._core.read(block)]
        return block[:, 0] if self._flat else block

    def blocks(self, frames: int = 65536) -> Iterator[npt.NDArray[Any]]:
        """The whole result in blocks of so many frames, the last one shorter."""
        while len(block := self.read(frames)):
            yield block

    def cancel(self) -> None:
        """End the call under way, from any thread, with :class:`Cancelled`."""
        self._core.cancel()

    def __enter__(self) -> Leveler:
        return self

    def __exit__(
        self,
        kind: type[BaseException] | None,
        error: BaseException | None,
        trace: TracebackType | None,
    ) -> None:
        del kind, error, trace
