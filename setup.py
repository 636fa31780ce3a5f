"""The compiled module of the Python package, built by CMake below build/wheel with what CMAKE_ARGS adds to its
options, or in the build that QUORVEL_BUILD names; all but the version is in pyproject.toml."""

import os
import re
import shlex
import subprocess
import sys
from pathlib import Path

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

ROOT = Path(__file__).resolve().parent


class CMakeBuild(build_ext):
    """Has CMake build the module and put it, with the library and the fragment programs, into the package."""

    def build_extension(self, ext: Extension) -> None:
        package = Path(self.get_ext_fullpath(ext.name)).resolve().parent
        given = os.environ.get("QUORVEL_BUILD")
        build = Path(given) if given else ROOT / "build/wheel"
        if not given:
            options = ["-G", "Ninja", "-DCMAKE_BUILD_TYPE=Release", "-DQV_BUILD_TESTS=OFF", "-Wno-dev"]
            options += [f"-DPython_EXECUTABLE={sys.executable}", *shlex.split(os.environ.get("CMAKE_ARGS", ""))]
            subprocess.check_call(["cmake", "-S", ROOT, "-B", build, *options])
        subprocess.check_call(["cmake", "--build", build, "--target", ext.name.rpartition(".")[2]])
        subprocess.check_call(["cmake", "--install", build, "--prefix", package, "--component", "wheel"])


found = re.search(r"VERSION (\d+\.\d+\.\d+)", (ROOT / "CMakeLists.txt").read_text())
setup(
    version=found[1] if found else None,
    ext_modules=[Extension("quorvel._quorvel", [])],
    cmdclass={"build_ext": CMakeBuild},
)
