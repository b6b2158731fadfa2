#!/usr/bin/env python3
# SPDX-License-Identifier: Apache-2.0
"""schema_test.py COMMAND SOURCE_DIR: every line of JSON that the command prints on the samples and on damaged
files satisfies docs/schema/SUBCOMMAND.json, and every subcommand with --json has a schema there."""

import json
import pathlib
import re
import subprocess
import sys
import tempfile

import jsonschema

COMMAND = sys.argv[1]
SOURCE = pathlib.Path(sys.argv[2])

# The ways to call each subcommand, as far as it has the options; FILES stands for the files.
CALLS = {
    "info": [["FILES"], ["--scan", "FILES"], ["--index", "FILES"]],
    "check": [["--seeks", "2", "FILES"]],
    "frames": [["FILES"], ["--demuxer", "FILES"], ["--summary", "FILES"]],
    "tags": [["FILES"], ["--script", "FILES"]],
    "repair": [["--dry-run", "FILES"], ["--dry-run", "--always", "--join-gaps", "FILES"]],
    "seek": [["--mode", "all", "FILES", "0", "1.5", "2:00"], ["--seeks", "2", "FILES"]],
}

DAMAGED = ["audio_mp3", "avc_aac_index", "h263_mp3"]
DAMAGE = {
    "whole": lambda data: data,
    "cut": lambda data: data[: len(data) * 2 // 3],
    "header": lambda data: data[:9],
    "empty": lambda data: b"",
    "hole": lambda data: data[:5000] + bytes(3000) + data[8000:],
    "flags": lambda data: data[:4] + b"\0" + data[5:],
    "text": lambda data: b"no FLV at all",
    "metadata": lambda data: data[:30] + b"\x03" + data[31:],
    "version": lambda data: data[:3] + b"\2" + data[4:],
}


def run(*arguments):
    result = subprocess.run([COMMAND, *arguments], capture_output=True, text=True, check=False)
    if result.returncode not in (0, 1, 2, 3):
        sys.exit(f"{arguments}: exit code {result.returncode}\n{result.stderr}")
    return result.stdout


def subcommands():
    listed = re.search(r"^Commands:\n((?:  .*\n)+)", run("--help"), re.MULTILINE)
    names = re.findall(r"^  ([a-z]+) ", listed[1], re.MULTILINE)
    return [name for name in names if "--json" in run(name, "--help")]


def check(name, files, calls=None):
    """The number of lines looked at. `calls`: in place of those in the table."""
    path = SOURCE / "docs" / "schema" / f"{name}.json"
    if name not in CALLS or not path.exists():
        sys.exit(f"zoflv {name} --json: add its calls to CALLS here and its schema, {path}")
    schema = json.loads(path.read_text(encoding="utf-8"))
    validator = jsonschema.Draft7Validator(schema)
    validator.check_schema(schema)
    help_text = run(name, "--help")
    lines = 0
    for call in calls or CALLS[name]:
        if any(word.startswith("--") and word not in help_text for word in call):
            continue
        for batch in [files] if "FILE..." in help_text else [[file] for file in files]:
            arguments = [part for word in call for part in (batch if word == "FILES" else [word])]
            for line in run(name, "--json", *arguments).splitlines():
                lines += 1
                error = jsonschema.exceptions.best_match(validator.iter_errors(json.loads(line)))
                if error:
                    sys.exit(f"zoflv {name} --json {' '.join(call)}: {error.json_path}: {error.message}\n{line[:400]}")
    if lines == 0:
        sys.exit(f"zoflv {name} --json prints nothing")
    return lines


with tempfile.TemporaryDirectory() as folder:
    made = [str(pathlib.Path(folder) / "missing.flv")]
    for sample in sorted((SOURCE / "samples").glob("*.flv")):
        for kind, damage in DAMAGE.items():
            if kind != "whole" and sample.stem not in DAMAGED:
                continue
            made.append(f"{folder}/{sample.stem}.{kind}.flv")
            pathlib.Path(made[-1]).write_bytes(damage(sample.read_bytes()))
    for command in subcommands():
        print(f"zoflv {command} --json: {check(command, made)} lines")
    large = pathlib.Path(folder) / "large.flv"
    large.write_bytes((SOURCE / "samples" / "video_only.flv").read_bytes())
    with large.open("ab") as file:
        file.truncate(40 << 30)
    check("check", [str(large)], [["--timeout", "1", "FILES"]])
