"""The recordings of the examples, and their evaluation as their settings want it."""
import gzip
import os
import subprocess


def lines_of(folder):
    with gzip.open(os.path.join(folder, "recording.jsonl.gz")) as file:
        return file.read()


def make_root(program, folder, root):
    subprocess.run([program, "init", "--root", root, "--interval-time", "2", "--settings",
                    os.path.join(folder, "settings.json")], check=True, capture_output=True)


def evaluate(program, root, lines, *options):
    """What is printed of the lines."""
    return subprocess.run([program, "evaluate", "--root", root, "--enroll", "--quiet", *options],
                          input=lines, check=True, capture_output=True).stdout
