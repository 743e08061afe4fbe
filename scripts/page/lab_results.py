"""Evaluates the lab's recording into a root folder, for what is made from its results."""
import gzip
import os
import subprocess

LAB = os.path.join(os.path.dirname(os.path.abspath(__file__)), "..", "..", "examples", "lab")


def evaluate_lab(program, root, results, *options, runs=None):
    """The first `runs` runs of the recording (all when None); results go to a file."""
    subprocess.run([program, "init", "--root", root, "--interval-time", "2", "--settings",
                    os.path.join(LAB, "settings.json")], check=True, stdout=subprocess.DEVNULL)
    with gzip.open(os.path.join(LAB, "recording.jsonl.gz")) as recording, \
            open(results, "wb") as out:
        lines = recording.readlines()[:runs]
        subprocess.run([program, "evaluate", "--root", root, "--enroll", "--quiet", "--format",
                        "json", *options], input=b"".join(lines), stdout=out, check=True)
