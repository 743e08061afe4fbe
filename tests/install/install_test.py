#!/usr/bin/env python3
"""Installs below a temporary folder, moves it, and looks at it as a host does: its files, its
symbols, its headers, its manual, and the examples built against it in both ways.

usage: install_test.py TREE BUILD-FOLDER CMAKE C++-COMPILER C-COMPILER
"""
import concurrent.futures
import json
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
PYTHON = "/usr/bin/python3"
CLANG = next(name for name in ("clang-14", "clang-19", "clang") if shutil.which(name))


FUNCTIONS = {"FunctionDecl", "CXXMethodDecl", "CXXConstructorDecl", "CXXDestructorDecl",
             "CXXConversionDecl"}
RECORDS = {"NamespaceDecl", "LinkageSpecDecl", "CXXRecordDecl", "ClassTemplateSpecializationDecl"}


def blocks(document, language):
    """The blocks of code of a document that are marked with the language."""
    found = re.findall(r"^```(\w*)\n(.*?)^```$", (TREE / document).read_text(), flags=re.M | re.S)
    return [code for marked, code in found if marked == language]


def transcripts():
    """(commands, output) of the guide's two examples."""
    for block in blocks("docs/embedding.md", ""):
        lines = block.splitlines()
        commands = [line[2:] for line in lines if line.startswith("$ ")]
        if commands:
            yield commands, sorted(line for line in lines if not line.startswith("$ "))


def attempt(*command, **options):
    return subprocess.run([str(word) for word in command], text=True, stdout=subprocess.PIPE,
                          stderr=subprocess.STDOUT, check=False, **options)


def run(*command, **options):
    done = attempt(*command, **options)
    if done.returncode != 0:
        raise AssertionError(f"{shlex.join(map(str, command))}\n{done.stdout}")
    return done.stdout


def minor():
    return run(PYTHON, "-c", "import sys; print(sys.version_info.minor)").strip()


def note_names(node, record, declared, defined, access="public", only=None):
    """Takes from a compiler's tree what is declared without a body (by its mangled name) and what
    has one; `only`: of the members of a class made from a template, those that it leaves open."""
    kind, inner, name = node.get("kind", ""), node.get("inner", []), node.get("name", "")
    if node.get("isImplicit") or access == "private":
        return
    has_body = any(part.get("kind") in ("CompoundStmt", "CXXTryStmt") for part in inner)
    if kind in FUNCTIONS or (kind == "VarDecl" and node.get("storageClass") == "extern"):
        given = has_body or {"pure", "explicitlyDeleted", "explicitlyDefaulted"} & node.keys()
        symbol = node.get("mangledName", name)
        if given or (only is not None and name not in only):
            defined.add(symbol)
        else:
            declared[symbol] = f"{record}::{name}"
    elif kind == "ClassTemplateDecl":
        pattern = next(part for part in inner if part.get("kind") == "CXXRecordDecl")
        inside = {}
        note_names(pattern, name, inside, set())
        left_open = {text.rpartition("::")[2] for text in inside.values()}
        for part in inner:
            if part.get("kind") == "ClassTemplateSpecializationDecl":
                note_names(part, record, declared, defined, access, left_open)
    elif kind in RECORDS:
        access = "private" if node.get("tagUsed") == "class" else "public"
        for part in inner:
            access = part["access"] if part.get("kind") == "AccessSpecDecl" else access
            note_names(part, name or record, declared, defined, access, only)


class InstallTest(unittest.TestCase):
    @classmethod
    def setUpClass(cls):
        scratch = tempfile.TemporaryDirectory()
        cls.addClassCleanup(scratch.cleanup)
        cls.folder = pathlib.Path(scratch.name)
        run(CMAKE, "--install", BUILD, "--prefix", cls.folder / "first")
        cls.prefix = (cls.folder / "first").rename(cls.folder / "moved")
        cls.library = next(cls.prefix.rglob("libkeelstone.so"))
        cls.headers = cls.prefix / "include"
        # A host finds the library as it was told to; the program and the module by themselves.
        cls.bare = {name: value for name, value in os.environ.items()
                    if name not in ("LD_LIBRARY_PATH", "PYTHONPATH")}
        cls.environment = dict(cls.bare, LD_LIBRARY_PATH=str(cls.library.parent),
                               PKG_CONFIG_PATH=str(cls.library.parent / "pkgconfig"),
                               CMAKE_PREFIX_PATH=str(cls.prefix), CXX=CXX, CC=CC)

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
        jobs += [(compiler, [f"-std={standard}", "-pedantic"], self.headers / "keelstone/keelstone.h")
                 for compiler in ("gcc", CLANG) for standard in ("c99", "c11")]
        jobs += [("g++", ["-std=c++11"], self.headers / "keelstone/keelstone.h")]

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

    def test_every_name_that_a_header_declares_links(self):
        """What the headers declare and do not define, as a host's compiler sees it, is in the
        library: all but private members and what is virtual and pure."""
        names = "".join(f'#include "{header.relative_to(self.headers)}"\n'
                        for header in sorted(self.headers.rglob("*.h")))
        seen = subprocess.run(
            [CLANG.replace("clang", "clang++"), "-std=c++20", "-fsyntax-only", f"-I{self.headers}",
             "-Xclang", "-ast-dump=json", "-Xclang", "-ast-dump-filter=keelstone", "-x", "c++", "-"],
            input=names, text=True, stdout=subprocess.PIPE, check=True).stdout
        declared, defined, at = {}, set(), seen.find("{")
        while at >= 0:
            root, at = json.JSONDecoder().raw_decode(seen, at)
            note_names(root, "", declared, defined)
            at = seen.find("{", at)
        table = run("nm", "-D", "--defined-only", self.library)
        defined |= {re.sub("@@.*", "", line.split()[-1]) for line in table.splitlines()}
        self.assertGreater(len(declared), 400)
        self.assertEqual(sorted(declared[name] for name in set(declared) - defined), [])

    def test_program_uses_public_headers_only(self):
        installed = {str(header.relative_to(self.headers)) for header in self.headers.rglob("*.h")}
        private = [f"{source.name}: {name}" for source in sorted(TREE.glob("program/**/*.[hc]*"))
                   for name in re.findall(r'#include "([^"]+)"', source.read_text())
                   if not name.startswith("program/") and name not in installed]
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

    def test_the_guide_s_examples_build_with_the_cmake_package(self):
        (self.folder / "examples").symlink_to(TREE / "examples")
        count = 0
        for commands, output in transcripts():
            for command in commands:
                printed = run("bash", "-c", command, cwd=self.folder, env=self.environment)
            self.assertEqual(sorted(printed.splitlines()), output)
            count += 1
        self.assertEqual(count, 2)

    def compiled(self, compiler, source, module):
        flags = shlex.split(run("pkg-config", "--cflags", "--libs", module, env=self.environment))
        program = self.folder / f"{source.stem}-with-pkg-config"
        run(*compiler, source, *flags, "-o", program)
        return program

    def test_the_guide_s_examples_build_with_pkg_config(self):
        for (_, output), compiler, source, module in zip(
                transcripts(), ([CXX, "-std=c++20"], [CC, "-std=c99"]),
                ("embed-cpp/poll.cpp", "embed-c/poll.c"), ("keelstone", "keelstone-c")):
            program = self.compiled(compiler, TREE / "examples" / source, module)
            with tempfile.TemporaryDirectory() as root:
                printed = run(program, root, env=self.environment)
            self.assertEqual(sorted(printed.splitlines()), output)

    def test_the_first_program_in_the_readme_learns(self):
        [code] = blocks("README.md", "cpp")
        source = self.folder / "readme.cpp"
        source.write_text(code)
        program = self.compiled([CXX, "-std=c++20", "-Wall", "-Wextra"], source, "keelstone")
        printed = run(program, cwd=self.folder, env=self.environment)
        self.assertIn(f"```cpp\n{code}```\n\nIt prints\n\n```\n{printed}```\n",
                      (TREE / "README.md").read_text())
        self.assertIn("expected always 12", printed)

    def python_works(self, python):
        """The module is found, and does what its documents show."""
        prelude = ("import keelstone, multiprocessing\n"
                   "rows = [{'neighbor': '10.0.12.2', 'state': 'Established'}]\n"
                   "devices, read = ['r1', 'r2'], lambda device: rows\n")
        count = 0
        for document in ("README.md", "docs/python.md"):
            for code in blocks(document, "python"):
                script = self.folder / "shown.py"
                self.assertIn('"/var/lib/keelstone"', code)
                code = code.replace("/var/lib/keelstone", str(self.folder / "python-root"))
                script.write_text(prelude + code)
                run(python, script, cwd=self.folder, env=self.bare)
                count += 1
        self.assertEqual(count, 3)
        watched = run(python, TREE / "examples/python/watch.py", cwd=self.folder, env=self.bare)
        self.assertIn("poll 40: r2: state", watched)

    def test_python_finds_the_module_below_its_prefix(self):
        place = self.folder / "environment"
        run(PYTHON, "-m", "venv", "--without-pip", place)
        run(CMAKE, "--install", BUILD, "--prefix", place, "--component", "library")
        run(CMAKE, "--install", BUILD, "--prefix", place, "--component", "python")
        self.python_works(place / "bin/python")
        for prefix, folder in (("/usr/local", f"lib/python3.{minor()}/dist-packages"),
                               ("/usr", "lib/python3/dist-packages")):
            found = run(PYTHON, "-I", TREE / "bindings/python/site_folder.py", prefix)
            self.assertEqual(found.strip(), folder)

    def test_a_wheel_holds_module_and_library(self):
        tree = self.folder / "tree"
        shutil.copytree(TREE / "bindings/python", tree / "bindings/python")
        for name in ("pyproject.toml", "setup.py", "CMakeLists.txt", "docs/python.md"):
            (tree / name).parent.mkdir(parents=True, exist_ok=True)
            shutil.copy(TREE / name, tree / name)
        place = self.folder / "of-wheel"
        run(PYTHON, "-m", "venv", "--without-pip", place)
        offline = ("--no-index", "--no-deps", "--disable-pip-version-check")
        run(PYTHON, "-m", "pip", "wheel", *offline, "--no-build-isolation", "-w", self.folder, tree,
            env=dict(self.bare, KEELSTONE_BUILD=BUILD))
        [wheel] = self.folder.glob("keelstone-*.whl")
        run(PYTHON, "-m", "pip", "--python", place / "bin/python", "install", *offline, wheel)
        self.assertEqual(len(list(place.rglob("libkeelstone.so.1"))), 1)
        self.python_works(place / "bin/python")

    def test_the_program_finds_the_library_below_its_prefix(self):
        self.assertIn("keelstone", run(self.prefix / "bin/keelstone", "--version", env=self.bare))

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
        for language, files, least in (("cpp", "*.cpp", 4), ("c", "*.c", 2),
                                       ("cmake", "CMakeLists.txt", 1)):
            sources = "".join(file.read_text() for file in TREE.glob(f"examples/embed-*/{files}"))
            shown = blocks("docs/embedding.md", language)
            self.assertGreaterEqual(len(shown), least)
            for piece in "…\n".join(shown).split("…\n"):
                self.assertIn(piece, sources)


if __name__ == "__main__":
    unittest.main(argv=sys.argv[:1], verbosity=2)
