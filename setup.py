"""Packs the Python module: CMake builds it and the library, setuptools makes the wheel.

The environment variable KEELSTONE_BUILD names a build folder whose library and module are
taken as they are; without it both are built.
"""

import os
import pathlib
import re
import shutil
import subprocess
import sys
import tempfile

from setuptools import Extension, setup
from setuptools.command.build_ext import build_ext

TREE = pathlib.Path(__file__).resolve().parent


def cmake(*words):
    subprocess.run(["cmake", *map(str, words)], check=True)


class CMakeBuild(build_ext):
    """The module, and the library beside it, where its rpath finds it."""

    def build_extension(self, ext):
        module = pathlib.Path(self.get_ext_fullpath(ext.name)).resolve()
        module.parent.mkdir(parents=True, exist_ok=True)
        build = os.environ.get("KEELSTONE_BUILD") or self._build()
        with tempfile.TemporaryDirectory() as folder:
            for component in ("library", "python"):
                cmake("--install", build, "--prefix", folder, "--component", component, "--strip")
            installed = pathlib.Path(folder)
            shutil.copy(next(installed.rglob(f"_native{module.name[len('_native'):]}")), module)
            shutil.copy(next(installed.rglob("libkeelstone.so.[0-9]")), module.parent)

    def _build(self):
        build = pathlib.Path(self.build_temp).resolve()
        cmake("-S", TREE, "-B", build, "-DCMAKE_BUILD_TYPE=Release", "-DKEELSTONE_TESTS=OFF",
              "-DKEELSTONE_BENCH=OFF", f"-DKEELSTONE_PYTHON={sys.executable}")  # fmt: skip
        jobs = self.parallel or os.cpu_count() or 1
        cmake("--build", build, "--parallel", jobs, "--target", "keelstone_python")
        return build


version = re.search(r"VERSION (\S+)", (TREE / "CMakeLists.txt").read_text().partition("project(")[2])
setup(
    version=version[1],
    ext_modules=[Extension("keelstone._native", sources=[])],
    cmdclass={"build_ext": CMakeBuild},
)
