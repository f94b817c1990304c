"""tshark in both versions, zondarctl, and what they tell of a capture."""

import json
import os
import pathlib
import re
import subprocess
import sys
from collections import Counter

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("ZONDAR_BUILD", ROOT / "build/release"))
ZONDARCTL = BUILD / "zondarctl/zondarctl"
TSHARK = ROOT / "tests/wireshark/tshark"
# The ways in which people come by: reading once, twice, and twice without a look at the tree.
ONCE, TWICE = ("-Y", "zondar"), ("-2", "-Y", "zondar")
LIMIT = 300  # seconds, which only an endless loop takes
SEPARATOR, AGGREGATOR = "\t", "\x1f"

# By the text of a finding: its name.
FINDINGS = {text: name for name, text in
            re.findall(r'^FINDING\((\w+), +\w+, +"(.+)"\)$', (ROOT / "protocol/findings.def").read_text(), re.M)}


def versions():
    """Those that can be had; the reason why the second one cannot is printed."""
    fetched = subprocess.run([ROOT / "tools/fetch-tshark"], stderr=subprocess.PIPE, text=True, check=False)
    if fetched.returncode == 0:
        return ["12", "13"]
    print(f"Debian 12's tshark alone: {fetched.stderr.strip()}", flush=True)
    return ["12"]


def tshark(version, path, *options, dissector=None):
    """What it prints of a capture. Whatever is wrong with the dissector ends the test."""
    path = pathlib.Path(path)
    environment = os.environ | ({} if dissector is None else {"DISSECTOR": dissector})
    run = subprocess.run([TSHARK, version, "-r", path.name, *options], cwd=path.parent, capture_output=True,
                         env=environment, timeout=LIMIT, check=False)
    out, err = (stream.decode("utf-8", "replace") for stream in (run.stdout, run.stderr))
    if run.returncode != 0 or err or "Lua Error" in out:
        at = max(out.find("Lua Error"), 0)
        sys.exit(f"tshark {version} {' '.join(options)}, {path}: status {run.returncode}\n{err}{out[at:at + 500]}")
    return out


def rows(version, path, names, *options, **more):
    """Of each packet that is shown, the values of these fields, a list each."""
    named = [word for name in names for word in ("-e", name)]
    shown = tshark(version, path, *options, "-T", "fields", "-E", f"separator={SEPARATOR}", "-E",
                   f"aggregator={AGGREGATOR}", *named, **more)
    return [[cell.split(AGGREGATOR) if cell else [] for cell in line.split(SEPARATOR)]
            for line in shown.splitlines()]


def infos(version, path, *options):
    """By packet number, its Info column, as it stands in the list of packets. As a field it would be without what a
    post-dissector adds. No filter is applied, and so no tree is made."""
    kept = options[:options.index("-Y")]
    lines = tshark(version, path, *kept, "-o", 'gui.column.format:"Number","%m","Info","%i"').splitlines()
    return {int(number): info for number, _, info in (line.strip().partition(" ") for line in lines)}


def expert_counts(version, path):
    """The table of experts, as it stands in the window program, too: how often each severity and finding, and
    what else is told of it."""
    severity, counts = "", Counter()
    for line in tshark(version, path, "-2", "-q", "-z", "expert").splitlines():
        if heading := re.fullmatch(r"(Error|Warn|Note|Chat)s \(\d+\)", line):
            severity = heading[1].lower()
        elif row := re.fullmatch(r" +(\d+) +\w+ +ZONDAR\S* +(.*)", line):
            counts[f"{severity} {finding_in(row[2])}"] += int(row[1])
    return counts


def finding_in(text):
    """The name of the finding that a text tells of."""
    return next((name for known, name in FINDINGS.items() if text.startswith(known)), f"unknown: {text}")


def decoded(path):
    """What zondarctl tells of a capture."""
    run = subprocess.run([ZONDARCTL, "--json", "decode", path], capture_output=True, check=False)
    if run.returncode not in (0, 4, 5):
        sys.exit(f"zondarctl decode {path}: status {run.returncode}: {run.stderr.decode()}")
    return json.loads(run.stdout)["data"]
