"""The tests of the whole program inside the service's restrictions, which systemd puts on test and
daemon alike, from the unit itself."""

import concurrent.futures
import pathlib
import queue
import re
import subprocess
from dataclasses import dataclass

from bench import ROOT, SYSTEMD, UNIT, run, script, write

PROGRAMS = ROOT / "build/release/tests/system"
PLACES = pathlib.Path("/run/whole-program")
WORKERS = 4

# What a test needs beside the restrictions: a world of its own, as tests/sandbox gives it. It binds
# /dev/log itself, so its devices are its own, but not those of PrivateDevices; and some run the
# daemon under strace, which needs two calls more.
WORLD = """
Type=oneshot
Restart=no
SuccessExitStatus=
ExecStart=
ExecStart={place}/command
StandardOutput=truncate:{place}/printed
StandardError=inherit
TimeoutStartSec=200
Environment=ZONDAR_SANDBOX=1 PATH=/usr/sbin:/usr/bin:/sbin:/bin
PrivateNetwork=yes
TemporaryFileSystem=/quelt:mode=1777 /tmp:mode=1777
PrivateDevices=no
BindPaths={place}/dev:/dev
SystemCallFilter=ptrace setreuid
"""


@dataclass(frozen=True)
class Profile:
    name: str
    text: str  # of a [Service] section
    cannot: dict[str, str]  # a pattern of tests' names, and why they cannot run here


def restrictions(*names: str) -> str:
    """The [Service] sections of these files, one behind the other."""
    texts = ((SYSTEMD / name).read_text() for name in names)
    sections = (re.split(r"^\[(\w+)\]\n", text, flags=re.MULTILINE) for text in texts)
    return "\n".join(text[text.index("Service") + 1] for text in sections)


OF_RSYSLOG = {"^LogFiles|^LogRotation": "they show rsyslog, with rights of its own, at work"}
BASE = Profile("base", restrictions(f"{UNIT}.service"), {
    **OF_RSYSLOG,
    "LivesWithoutItsPidFile|OverwritesAnUnreadablePidFile":
        "root reads and writes what they make unreadable, and this profile leaves it root",
})  # fmt: skip
STRICT = Profile("strict", restrictions(f"{UNIT}.service", "strict.conf"), {
    **OF_RSYSLOG,
    "EndsWhenThePidFileNamesALivingProcess":
        "one of its processes is root's, and the daemon takes what it may not signal for gone",
})  # fmt: skip


def tests() -> list[tuple[pathlib.Path, str]]:
    """Program and name of each."""
    found = []
    for program in sorted(PROGRAMS.glob("*_test")):
        listed = run("env", "ZONDAR_SANDBOX=1", program, "--gtest_list_tests")
        suite = ""
        for line in listed.splitlines():
            name = line.split("#")[0].rstrip()
            if not name.startswith(" "):
                suite = name
            elif suite.endswith("."):
                found.append((program, suite + name.strip()))
    return found


def prepare(profile: Profile, number: int) -> pathlib.Path:
    """A place for one test at a time, and its unit."""
    place = PLACES / str(number)
    devices = place / "dev"
    if not devices.exists():
        devices.mkdir(parents=True)
        for name in ("null", "zero", "full", "random", "urandom", "tty"):
            (devices / name).touch()
            run("mount", "--bind", f"/dev/{name}", devices / name)
        for name in ("shm", "pts"):
            (devices / name).mkdir(mode=0o777)
        (devices / "fd").symlink_to("/proc/self/fd")
        devices.chmod(0o777)
    world = WORLD.format(place=place)
    write(f"/etc/systemd/system/whole-program-{number}.service",
          f"[Unit]\nStartLimitIntervalSec=0\n[Service]\n{profile.text}\n{world}")  # fmt: skip
    return place


def one(place: pathlib.Path, program: pathlib.Path, name: str) -> str:
    """What is wrong with a test, or nothing."""
    (place / "dev/log").unlink(missing_ok=True)
    script(place / "command", f"exec {program} --gtest_filter='{name}'")
    unit = f"whole-program-{place.name}.service"
    done = subprocess.run(["systemctl", "start", unit], capture_output=True, text=True, check=False)
    printed = (place / "printed").read_text(errors="replace")
    passed = done.returncode == 0 and "[  PASSED  ] 1 test." in printed
    return "" if passed else printed or done.stderr


def play(profile: Profile) -> int:
    """How many failed."""
    places: queue.Queue[pathlib.Path] = queue.Queue()
    for number in range(WORKERS):
        places.put(prepare(profile, number))
    run("systemctl", "daemon-reload")

    def in_a_place(test: tuple[pathlib.Path, str]) -> str:
        place = places.get()
        try:
            return one(place, *test)
        finally:
            places.put(place)

    every = tests()
    left_out = {name: reason for _, name in every for pattern, reason in profile.cannot.items()
                if re.search(pattern, name)}  # fmt: skip
    chosen = [test for test in every if test[1] not in left_out]
    failed = 0
    with concurrent.futures.ThreadPoolExecutor(WORKERS) as workers:
        for (_, name), problem in zip(chosen, workers.map(in_a_place, chosen)):
            if problem:
                failed += 1
                print(f"FAILED  {profile.name}: {name}:\n{problem}", flush=True)
    for name, reason in left_out.items():
        print(f"left out  {profile.name}: {name}: {reason}")
    print(f"whole program, {profile.name}: {len(chosen) - failed} passed, {failed} failed, "
          f"{len(left_out)} left out")  # fmt: skip
    return failed
