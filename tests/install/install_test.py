#!/usr/bin/env python3
"""Installs below a temporary folder, moves it, and looks at it as a host does: its files, its
symbols, its headers, its manual, and the examples built against it in both ways.

usage: install_test.py TREE BUILD-FOLDER CMAKE C++-COMPILER C-COMPILER
"""
import concurrent.futures
import os
import pathlib
import re
import shlex
import shutil
import subprocess
import sys
import tempfile
import unittest

TREE, BUILD, CMAKE, CXX, CC = sys.argv[1:6]
TREE = pathlib.Path(TREE)
CLANG = next(name for name in ("clang-14", "clang-19", "clang") if shutil.which(name))
CPP_OUTPUT = [
    r'poll 20: r1 10.0.12.2 prefixes broke {"_t":4,"_p":"{\"ruleParam\":12}","_v":"0"}',
    r'poll 20: r1 10.0.12.2 state broke {"_t":0,"_p":"{\"ruleParam\":\"Established\"}","_v":"Idle"}',
]
C_OUTPUT = [
    '1700001200 r1 10.0.12.2 prefixes is 0: expected always 12',
    '1700001200 r1 10.0.12.2 state is Idle: expected always "Established"',
]


def attempt(*command, **options):
    return subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, **options)


def run(*command, **options):
    done = attempt(*command, **options)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}\n{done.stdout}")
    return done.stdout


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.folder = pathlib.Path(scratch.name)
        run(CMAKE, "--install", BUILD, "--prefix", cls.folder / "first")
        cls.prefix = (cls.folder / "first").rename(cls.folder / "moved")
        cls.library = next(cls.prefix.rglob("libkeelstone.so"))
        cls.headers = cls.prefix / "include/keelstone"
        cls.environment = dict(os.environ, LD_LIBRARY_PATH=str(cls.library.parent),
                               PKG_CONFIG_PATH=str(cls.library.parent / "pkgconfig"))

    def test_library_is_found_by_its_soname(self):
        dynamic = run("readelf", "-d", self.library)
        soname = re.search(r"SONAME.*\[(.*)\]", dynamic)[1]
        self.assertEqual(soname, "libkeelstone.so.1")
        self.assertEqual(self.library.readlink().name, soname)
        self.assertRegex((self.library.parent / soname).readlink().name, r"\.so\.1\.\d+\.\d+$")
        self.assertNotRegex(dynamic, "R(UN)?PATH")
        self.assertNotIn(str(TREE), run("strings", self.library))

    def test_only_marked_symbols_leave_the_library(self):
        marked = set()
        for header in self.headers.rglob("*.h"):
            text = re.sub(r"/\*.*?\*/|//[^\n]*|^#.*?[^\\]$", "", header.read_text(),
                          flags=re.S | re.M)
            marked |= set(re.findall(r"(?:class|struct) KEELSTONE_EXPORT ([\w:]+)", text))
            marked |= set(re.findall(r"KEELSTONE_EXPORT [^;{(]*?(\w+)(?:\(|;)", text))
            marked |= set(re.findall(r"KS_API [^;(]*?(\w+)\(", text))
        marked |= {"operator=="}  # a friend of JsonValue
        table = run("nm", "-DC", "--defined-only", "--with-symbol-versions", self.library)
        strange, c_calls = [], set()
        for line in table.splitlines():
            name = line.split(" ", 2)[-1]
            if name == "KEELSTONE_1":
                continue
            name = re.sub(r"@@KEELSTONE_1$", "", name)
            words = re.sub(r"^(vtable|typeinfo|typeinfo name|guard variable|"
                           r"(non-)?virtual thunk) (for|to) ", "", name)
            words = re.sub(r"\[abi:\w+\]|\(.*", "", words)
            parts = [re.sub(r"<.*", "", part) for part in words.removeprefix("keelstone::").split("::")]
            if words.startswith("keelstone::") and marked & {parts[0], "::".join(parts[:2])}:
                continue
            if words.startswith("ks_"):
                c_calls.add(words)
                continue
            strange.append(name)
        self.assertEqual(strange, [])
        self.assertEqual(c_calls, {name for name in marked if name.startswith("ks_")})
        self.assertGreater(len(table.splitlines()), 500)

    def test_every_header_compiles_alone(self):
        headers = sorted(self.headers.rglob("*.h"))
        jobs = [(compiler, ["-std=c++20"], header)
                for compiler in ("g++", CLANG.replace("clang", "clang++")) for header in headers]
        jobs += [(compiler, [f"-std={standard}", "-pedantic"], self.headers / "keelstone.h")
                 for compiler in ("gcc", CLANG) for standard in ("c99", "c11")]
        jobs += [("g++", ["-std=c++11"], self.headers / "keelstone.h")]

        def compile_alone(job):
            compiler, flags, header = job
            language = "c++" if "++" in compiler else "c"
            done = attempt(compiler, *flags, "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                           f"-I{self.headers}", "-x", language, "-", cwd=self.folder,
                           input=f'#include "{header.relative_to(self.headers)}"\n')
            return "" if done.returncode == 0 else f"{compiler} {header.name}\n{done.stdout}"

        with concurrent.futures.ThreadPoolExecutor(os.cpu_count()) as pool:
            self.assertEqual([fault for fault in pool.map(compile_alone, jobs) if fault], [])
        self.assertGreater(len(headers), 40)

    def test_program_uses_public_headers_only(self):
        installed = {str(header.relative_to(self.headers)) for header in self.headers.rglob("*.h")}
        private = [f"{source.name}: {name}" for source in sorted(TREE.glob("host/*.[hc]*"))
                   for name in re.findall(r'#include "([^"]+)"', source.read_text())
                   if not name.startswith("host/") and name not in installed]
        self.assertEqual(private, [])

    def test_manual_and_completion(self):
        pages = sorted(self.prefix.glob("share/man/man1/*.1"))
        self.assertGreater(len(pages), 10)
        for page in pages:
            checked = run("groff", "-man", "-ww", "-Kutf8", "-Tutf8", "-P-cbou", page)
            self.assertNotIn("warning", checked)
            self.assertIn("SYNOPSIS", checked)
            self.assertIn("SEE ALSO", checked)
        script = self.prefix / "share/bash-completion/completions/keelstone"
        for line, expected in (("keelstone eval", "evaluate"), ("keelstone rule s", "set"),
                               ("keelstone evaluate --fo", "--format"),
                               ("keelstone evaluate --format j", "json"),
                               ("keelstone block add --dev", "--device")):
            words = shlex.join(line.split())
            offered = run("bash", "-c", f". {script}; COMP_WORDS=({words}); "
                          "COMP_CWORD=$((${#COMP_WORDS[@]}-1)); _keelstone; "
                          'echo "${COMPREPLY[@]}"')
            self.assertIn(expected, offered.split(), line)

    def poll(self, program, expected):
        with tempfile.TemporaryDirectory() as root:
            printed = run(program, root, env=self.environment).splitlines()
        self.assertEqual(sorted(printed), expected)

    def test_examples_build_with_the_cmake_package(self):
        for example, program, output in (("embed-cpp", "poll", CPP_OUTPUT),
                                         ("embed-c", "poll-c", C_OUTPUT)):
            build = self.folder / f"build-{example}"
            run(CMAKE, "-S", TREE / "examples" / example, "-B", build, "-G", "Ninja",
                f"-DCMAKE_PREFIX_PATH={self.prefix}", f"-DCMAKE_CXX_COMPILER={CXX}",
                f"-DCMAKE_C_COMPILER={CC}", "--no-warn-unused-cli")
            run(CMAKE, "--build", build)
            self.poll(build / program, output)

    def test_examples_build_with_pkg_config(self):
        for module, compiler, source, output in (
                ("keelstone", [CXX, "-std=c++20"], "embed-cpp/poll.cpp", CPP_OUTPUT),
                ("keelstone-c", [CC, "-std=c99"], "embed-c/poll.c", C_OUTPUT)):
            flags = shlex.split(run("pkg-config", "--cflags", "--libs", module,
                                    env=self.environment))
            program = self.folder / module
            run(*compiler, TREE / "examples" / source, *flags, "-o", program)
            self.poll(program, output)

    def test_another_major_version_is_refused(self):
        project = self.folder / "later"
        project.mkdir()
        (project / "CMakeLists.txt").write_text(
            "cmake_minimum_required(VERSION 3.25)\nproject(later NONE)\n"
            "find_package(Keelstone 2.0 REQUIRED)\n")
        done = attempt(CMAKE, "-S", project, "-B", project, f"-DCMAKE_PREFIX_PATH={self.prefix}")
        self.assertNotEqual(done.returncode, 0)
        self.assertIn('compatible with requested version "2.0"', " ".join(done.stdout.split()))

    def test_guide_shows_the_code_of_the_examples(self):
        sources = {"cpp": "", "c": ""}
        for source in TREE.glob("examples/embed-*/*.c*"):
            sources[source.suffix[1:]] += source.read_text()
        shown = 0
        for language, block in re.findall(r"^```(cpp|c)\n(.*?)^```$", (TREE / "docs/embedding.md")
                                          .read_text(), flags=re.M | re.S):
            shown += 1
            for piece in block.split("…\n"):
                self.assertIn(piece, sources[language])
        self.assertGreater(shown, 4)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
