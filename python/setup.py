"""Builds the extension module with an installed libquorvane, or with the archive of a build tree.

QUORVANE_BUILD names the build tree; without it the one of the sources around this folder is used when
pkg-config does not find an installed library.
"""

import os
import pathlib
import re
import shlex
import subprocess

from pybind11.setup_helpers import Pybind11Extension, build_ext
from setuptools import setup

HERE = pathlib.Path(__file__).resolve().parent
ROOT = HERE.parent


def version() -> str:
    text = (ROOT / "Common/version.h").read_text()
    return re.search(r'kVersion = "(.*)"', text).group(1)


def pkg_config(*words: str) -> list[str]:
    try:
        done = subprocess.run(
            ["pkg-config", *words], check=True, capture_output=True, encoding="utf-8"
        )
    except (OSError, subprocess.CalledProcessError):
        return []
    return shlex.split(done.stdout)


def build_tree() -> pathlib.Path | None:
    given = os.environ.get("QUORVANE_BUILD")
    if given:
        return pathlib.Path(given)
    if pkg_config("--libs", "quorvane"):
        return None
    return next((ROOT / "build" / name for name in ("release", "quick")
                 if (ROOT / "build" / name / "library/quorvane.pc").is_file()), None)


def extension() -> Pybind11Extension:
    tree = build_tree()
    core = Pybind11Extension("quorvane._core", ["src/quorvane/_core.cpp"], cxx_std=17)
    if tree is None:
        core.extra_compile_args += pkg_config("--cflags", "quorvane")
        core.extra_link_args += pkg_config("--libs", "quorvane") or ["-lquorvane"]
        return core
    archive = next(tree.glob("lib/**/libquorvane.a"))
    needed = (tree / "library/quorvane.pc").read_text()
    needed = re.search(r"^Libs.private: (.*)$", needed, re.M).group(1).split()
    core.include_dirs.append(str(ROOT / "library"))
    core.extra_link_args += [str(archive), *needed, "-Wl,--exclude-libs,ALL", "-Wl,--gc-sections"]
    return core


setup(version=version(), ext_modules=[extension()], cmdclass={"build_ext": build_ext})
