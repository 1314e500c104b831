"""Arrays through the module: the command's samples, any type, shape and stride, threads, errors."""

from __future__ import annotations

import contextlib
import os
import pickle
import shutil
import signal
import subprocess
import sys
import threading
from concurrent.futures import ThreadPoolExecutor
from pathlib import Path

import numpy as np
import pytest
import quorvane
from conftest import RATE, as_type, by_command, read_wav, speech, write_wav
from hypothesis import given, settings
from hypothesis import strategies as st
from hypothesis.extra import numpy as hnp

TYPES = ["float32", "float64", "int16", "int32"]
WAYS = [
    ([], {}),
    (["--plain"], {"plain": True}),
    (["--for", "podcast"], {"target": "podcast"}),
    (["--for", "lufs=-20:tp=-2"], {"target": (-20, -2)}),
]


@pytest.mark.parametrize("channels", [1, 2])
@pytest.mark.parametrize("words, options", WAYS)
def test_gives_the_samples_of_the_command(command, tmp_path, words, options, channels):
    audio = as_type(speech(4, channels), "int16")
    expected = by_command(command, tmp_path, audio, *words)
    assert np.array_equal(quorvane.level(audio, RATE, **options).audio, expected)


@pytest.mark.parametrize("dtype", TYPES)
def test_type_and_shape_come_back_from_any_stride(dtype):
    audio = as_type(speech(2, 2), dtype)
    expected = quorvane.level(audio, RATE).audio
    assert expected.dtype == audio.dtype and expected.shape == audio.shape
    before = audio.copy()
    wide = np.zeros((len(audio), 5), dtype)
    wide[:, 1:4:2] = audio
    for same in (np.asfortranarray(audio), audio[::-1][::-1], wide[:, 1:4:2]):
        assert np.array_equal(quorvane.level(same, RATE).audio, expected)
    assert np.array_equal(audio, before)
    flat = quorvane.level(np.ascontiguousarray(audio[:, 0]), RATE).audio
    column = quorvane.level(audio[:, :1], RATE).audio
    assert flat.shape == (len(audio),) and column.shape == (len(audio), 1)
    assert np.array_equal(flat, column[:, 0])


def test_a_repeated_channel_is_two_channels():
    mono = as_type(speech(1), "float32")
    both = np.broadcast_to(mono, (len(mono), 2))
    assert np.array_equal(
        quorvane.level(both, RATE).audio, quorvane.level(both.copy(), RATE).audio
    )


@pytest.mark.parametrize(
    "audio, rate, kind, words",
    [
        (np.zeros(0, np.float32), RATE, quorvane.Error, "no frames"),
        (np.array([0, np.nan]), RATE, quorvane.Error, "frame 1, channel 0"),
        (np.array([np.inf, 0], np.float32), RATE, quorvane.Error, "frame 0"),
        (np.zeros(99), 0, quorvane.ArgumentError, "0 Hz"),
        (np.zeros(99), -5, ValueError, "-5 Hz"),
        (np.zeros((9, 65)), RATE, quorvane.Unsupported, "65 channels"),
        (np.zeros((9, 0)), RATE, quorvane.ArgumentError, "0 channels"),
        (np.zeros((2, 2, 2)), RATE, quorvane.ArgumentError, "3 dimensions"),
        (np.array(1.0), RATE, quorvane.ArgumentError, "0 dimensions"),
        (np.array(["a"], object), RATE, quorvane.Unsupported, "|O"),
        (np.zeros(9, complex), RATE, quorvane.Unsupported, "c16"),
        (np.zeros(9, ">f4"), RATE, quorvane.Unsupported, ">f4"),
        (np.zeros(9, np.uint8), RATE, quorvane.Unsupported, "u1"),
    ],
)
def test_bad_input_is_refused_with_a_sentence(audio, rate, kind, words):
    for call in (quorvane.level, quorvane.measure):
        with pytest.raises(kind) as error:
            call(audio, rate)
        assert words in str(error.value)
    with pytest.raises(kind):
        quorvane.limit(audio, rate, "podcast")


def test_levels_tracks_together_as_the_command_does(command, tmp_path):
    voices = speech(16, 2)
    turns = (np.arange(len(voices)) // (4 * RATE)) % 2
    host = voices[:, 0] * np.where(turns, 0.05, 1)
    guest = 0.2 * voices[:, 1] * np.where(turns, 1, 0.05)
    tracks = [as_type(host[:-999], "int16"), as_type(guest[:, None], "int16")]
    files = [tmp_path / "host.wav", tmp_path / "guest.wav"]
    for path, track in zip(files, tracks):
        write_wav(path, track)
    out = tmp_path / "out"
    words = [command, "-q", "--no-config", "--together", "--suffix", "", "-d", str(out)]
    subprocess.run([*words, *map(str, files)], check=True)
    results = quorvane.level_together(tracks, RATE)
    for result, path, track in zip(results, files, tracks):
        assert result.audio.shape == track.shape and result.outcome == "leveled"
        assert np.array_equal(result.audio, read_wav(out / path.name, track.shape))
    tracks[1] = tracks[1].astype("float32")
    tracks[1][7] = np.nan
    with pytest.raises(quorvane.Error, match="track 2 of 2: the audio: the sample of frame 7"):
        quorvane.level_together(tracks, RATE)


def test_unknown_options_are_refused():
    audio = as_type(speech(1), "float32")
    with pytest.raises(quorvane.ArgumentError, match="podcats"):
        quorvane.level(audio, RATE, target="podcats")
    with pytest.raises(quorvane.ArgumentError, match="names a file"):
        quorvane.level(audio, RATE, tuning=["--output-file=x"])
    with pytest.raises(quorvane.ArgumentError, match="needs a target"):
        quorvane.limit(audio, RATE, None)


def test_an_exception_in_the_callback_comes_out_as_itself():
    class Mine(Exception):
        pass

    def refuse(fraction):
        if fraction > 0.3:
            raise Mine(fraction)

    with pytest.raises(Mine):
        quorvane.level(as_type(speech(2), "float32"), RATE, progress=refuse)


def test_a_keyboard_interrupt_ends_a_call():
    audio = as_type(speech(120, 2), "float32")
    timer = threading.Timer(0.1, os.kill, (os.getpid(), signal.SIGINT))
    timer.start()
    with pytest.raises(KeyboardInterrupt):
        for _ in range(100):
            quorvane.level(audio, RATE)
    timer.join()


def test_eight_threads_with_unlike_options():
    def work(number):
        audio = as_type(speech(1 + 0.2 * number, 1 + number % 2, number), TYPES[number % 4])
        return quorvane.level(
            audio,
            RATE,
            plain=number % 2 == 1,
            target=[None, "podcast", (-20, -2)][number % 3],
            second_thread=number >= 4,
        ).audio

    alone = [work(i) for i in range(8)]
    with ThreadPoolExecutor(8) as pool:
        for one, other in zip(alone, pool.map(work, range(8))):
            assert np.array_equal(one, other)


def test_pushed_blocks_give_the_same(tmp_path):
    audio = as_type(speech(3, 2), "int16")
    expected = quorvane.level(audio, RATE).audio
    for memory_bytes in (0, 1, 100_000):
        with quorvane.Leveler(
            RATE, 2, "int16", memory_bytes=memory_bytes, scratch_folder=tmp_path
        ) as leveler:
            for block in np.array_split(audio, 7):
                leveler.write(block)
            result = leveler.finish()
            assert result.outcome == "leveled" and result.audio is None
            assert np.array_equal(np.concatenate(list(leveler.blocks(999))), expected)
            with pytest.raises(quorvane.Error):
                leveler.write(audio)
        del leveler
    assert os.listdir(tmp_path) == []


def test_cancel_ends_calls():
    leveler = quorvane.Leveler(RATE)
    leveler.write(as_type(speech(1), "float32"))
    leveler.cancel()
    with pytest.raises(quorvane.Cancelled):
        leveler.finish()


def test_a_result_can_be_pickled_and_shown():
    result = quorvane.level(as_type(speech(4, 2), "float32") * [1, 0], RATE, target="podcast")
    again = pickle.loads(pickle.dumps(result))
    assert np.array_equal(again.audio, result.audio)
    assert (again.findings, again.after, again.facts) == (
        result.findings,
        result.after,
        result.facts,
    )
    assert "side-silent" in [finding.code for finding in result.findings]
    assert "podcast" in result.verdict
    page = result._repr_html_()
    assert "<svg" in page and page.count("<p") >= 2 + len(result.findings)
    assert len(result.gain_curve) * result.gain_curve.step_s == pytest.approx(4, abs=0.1)
    error = pickle.loads(pickle.dumps(quorvane.Unsupported("why", "QUORVANE_UNSUPPORTED")))
    assert (str(error), error.code) == ("why", "QUORVANE_UNSUPPORTED")


def test_a_file_is_leveled_beside_it(command, tmp_path):
    audio = as_type(speech(2, 2), "int16")
    expected = by_command(command, tmp_path, audio)
    out = tmp_path / "mine.wav"
    result = quorvane.level_file(tmp_path / "in.wav", out)
    assert result.outcome == "leveled"
    assert out.read_bytes() == (tmp_path / "out.wav").read_bytes()
    assert expected.shape == audio.shape
    with pytest.raises(quorvane.Error, match="exists"):
        quorvane.level_file(tmp_path / "in.wav", out)
    with pytest.raises(quorvane.Error, match="No such file"):
        quorvane.level_file(tmp_path / "none.wav", out, replace=True)


@pytest.mark.skipif(shutil.which("ffmpeg") is None, reason="needs ffmpeg")
def test_a_phone_memo_needs_the_module_beside_the_library(tmp_path):
    memo, out = tmp_path / "memo.m4a", tmp_path / "out.m4a"
    make = "ffmpeg -v error -f lavfi -i sine=d=2:f=300"
    subprocess.run([*make.split(), str(memo)], check=True)
    core = Path(str(sys.modules["quorvane._core"].__file__))
    folders = [core.parent, Path(sys.executable).resolve().parent.parent / "lib"]
    installed = any((folder / "quorvane/quorvane-media.so").exists() for folder in folders)
    if installed or "libquorvane.so" in Path("/proc/self/maps").read_text():
        pytest.skip("the module is installed, or may be beside the shared library")
    with pytest.raises(quorvane.Unsupported, match="memo.m4a.*quorvane-media.so"):
        quorvane.level_file(memo, out)
    assert os.listdir(tmp_path) == ["memo.m4a"]


def folders_in_use() -> set[Path]:
    """This process's folders of temporary data in memory, known by the locks that it holds."""
    links = []
    for descriptor in os.listdir("/proc/self/fd"):
        with contextlib.suppress(OSError):  # closed since, as that of the listing itself
            links.append(Path(os.readlink(f"/proc/self/fd/{descriptor}")))
    return {link.parent for link in links if link.match("/dev/shm/quorvane-*/lock")}


@pytest.mark.skipif(not os.path.isdir("/proc/self/fd"), reason="needs /proc")
def test_nothing_is_left_behind_or_printed(capfd, monkeypatch, tmp_path):
    monkeypatch.setenv("TMPDIR", str(tmp_path))
    used: set[Path] = set()

    def watch(fraction):
        used.update(folders_in_use())
        if fraction > stop_at:
            raise InterruptedError

    audio = as_type(speech(1), "float32")
    for stop_at in (1, 0.5):
        with contextlib.suppress(InterruptedError):
            quorvane.level(audio, RATE, progress=watch)
    with pytest.raises(quorvane.Error):
        quorvane.level(audio * np.nan, RATE)
    assert len(used) == 2 or not os.path.isdir("/dev/shm")
    assert [path for path in used if path.exists()] == []
    assert os.listdir(tmp_path) == []
    assert capfd.readouterr() == ("", "")


@settings(max_examples=25, deadline=None)
@given(
    hnp.arrays(
        st.sampled_from(TYPES),
        hnp.array_shapes(min_dims=1, max_dims=2, min_side=1, max_side=2).map(
            lambda shape: (shape[0] * 4000,) + shape[1:]
        ),
        fill=st.just(0),
    ),
    st.integers(1000, 96000),
    st.booleans(),
)
def test_any_array_comes_back_whole_or_with_a_sentence(audio, rate, plain):
    try:
        result = quorvane.level(audio, rate, plain=plain)
    except quorvane.Error as error:
        assert str(error)
        return
    assert result.audio.shape == audio.shape and result.audio.dtype == audio.dtype
    assert np.isfinite(result.audio).all()
