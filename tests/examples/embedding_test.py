#!/usr/bin/env python3
"""Installs the library below a temporary folder, moves it, builds examples/embedding
against it in both ways that a host may choose, and runs what comes out.

usage: embedding_test.py TREE BUILD-FOLDER CMAKE COMPILER
"""
import os
import pathlib
import shlex
import subprocess
import sys
import tempfile
import unittest

TREE, BUILD, CMAKE, COMPILER = sys.argv[1:5]
EXAMPLE = pathlib.Path(TREE) / "examples/embedding"
EXPECTED = [
    r'poll 20: r1 10.0.12.2 prefixes broke {"_t":4,"_p":"{\"ruleParam\":12}","_v":"0"}',
    r'poll 20: r1 10.0.12.2 state broke {"_t":0,"_p":"{\"ruleParam\":\"Established\"}","_v":"Idle"}',
]


def run(*command, **options):
    done = subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, **options)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class EmbeddingTest(unittest.TestCase):
    def setUp(self):
        scratch = tempfile.TemporaryDirectory()
        self.addCleanup(scratch.cleanup)
        self.folder = pathlib.Path(scratch.name)
        run(CMAKE, "--install", BUILD, "--prefix", self.folder / "first")
        self.prefix = (self.folder / "first").rename(self.folder / "moved")
        self.libraries = next(self.prefix.rglob("libkeelstone.so")).parent
        self.environment = dict(os.environ, LD_LIBRARY_PATH=str(self.libraries),
                                PKG_CONFIG_PATH=str(self.libraries / "pkgconfig"))

    def poll(self, program):
        root = self.folder / (program.name + "-root")
        run(self.prefix / "bin/keelstone", "init", "--root", root, "--interval-time", "30",
            env=self.environment)
        printed = run(program, root, env=self.environment).splitlines()
        self.assertEqual(sorted(printed), EXPECTED)

    def test_builds_with_the_cmake_package(self):
        build = self.folder / "build"
        run(CMAKE, "-S", EXAMPLE, "-B", build, "-G", "Ninja", f"-DCMAKE_PREFIX_PATH={self.prefix}",
            f"-DCMAKE_CXX_COMPILER={COMPILER}")
        run(CMAKE, "--build", build)
        self.poll(build / "poll")

    def test_builds_with_pkg_config(self):
        flags = shlex.split(run("pkg-config", "--cflags", "--libs", "keelstone",
                                env=self.environment))
        run(COMPILER, "-std=c++20", EXAMPLE / "poll.cpp", *flags, "-o", self.folder / "plain")
        self.poll(self.folder / "plain")


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1])
