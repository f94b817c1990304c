"""The test bench of tests/supervision: the booted machine's units, the daemon as their service,
what the journal says, and the run of a table of cases."""

import contextlib
import functools
import itertools
import json
import os
import pathlib
import resource
import shutil
import subprocess
import sys
import time
import traceback
from collections.abc import Callable, Iterator
from dataclasses import dataclass, field
from typing import Any

ROOT = pathlib.Path(__file__).resolve().parents[2]
sys.path.insert(0, str(ROOT / "evidence"))
import lab  # noqa: E402

PACKAGING = ROOT / "packaging"
SYSTEMD = PACKAGING / "systemd"
UNIT = "zondar-net-receiver"
UNITS = pathlib.Path("/lib/systemd/system")
DROP_INS = pathlib.Path(f"/etc/systemd/system/{UNIT}.service.d")
OPTIONS = pathlib.Path(f"/etc/default/{UNIT}")
LIBEXEC = pathlib.Path(f"/usr/libexec/{UNIT}")
REQUESTS = pathlib.Path(f"/run/{UNIT}")
SCRIPTS = pathlib.Path("/quelt/script")
NETWORK_SCRIPT = SCRIPTS / "set_interfaces_db.sh"


class Failed(Exception):
    """What is not as it should be."""


def expect(condition: bool, problem: object) -> None:
    if not condition:
        raise Failed(problem)


def equal(found: Any, expected: Any) -> None:
    expect(found == expected, f"{found!r} instead of {expected!r}")


def run(*command: object, check: bool = True, timeout: float = 100.0) -> str:
    """What a command prints, both streams together."""
    done = subprocess.run(
        [str(word) for word in command], stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
        stderr=subprocess.STDOUT, text=True, timeout=timeout, check=False,
    )  # fmt: skip
    expect(not check or done.returncode == 0, f"{command}: {done.returncode}: {done.stdout}")
    return done.stdout


def write(path: pathlib.Path | str, text: str, mode: int = 0o644) -> pathlib.Path:
    path = pathlib.Path(path)
    path.parent.mkdir(parents=True, exist_ok=True)
    path.unlink(missing_ok=True)
    path.write_text(text)
    path.chmod(mode)
    return path


def script(path: pathlib.Path, *lines: str) -> pathlib.Path:
    return write(path, "\n".join(("#!/bin/sh", *lines, "")), 0o755)


# ------------------------------------------------------------------------------------- the cases


@dataclass(frozen=True)
class Spoiled:
    """What makes a case fail: `line` gone or replaced by `by`; or `by` at the unit's end."""

    line: str = ""
    by: str = ""

    def apply(self, text: str) -> str:
        if self.line:
            return text.replace(f"{self.line}\n", f"{self.by}\n" if self.by else "")
        return text.replace("\n[Install]", f"\n{self.by}\n\n[Install]")


@dataclass(frozen=True)
class Case:
    """`spoiled`: the change that it notices; None where no change of one line would do."""

    name: str
    play: Callable[[], None]
    spoiled: Spoiled | None


@dataclass
class Machine:
    spoiled: Spoiled | None = None
    touched: bool = False  # whether a unit had the line to spoil
    began: float = field(default_factory=time.time)


machine = Machine()


def delivered(path: pathlib.Path) -> str:
    """A file's text, spoiled when a case shall notice that."""
    text = path.read_text()
    if machine.spoiled is None:
        return text
    changed = machine.spoiled.apply(text)
    machine.touched |= changed != text
    return changed


def clear() -> None:
    """The machine as after the installation of the package, the service not started; the board as
    delivered."""
    for name in (f"{UNIT}.service", f"{UNIT}-idle.timer"):
        run("systemctl", "kill", "--signal=KILL", name, check=False)
        run("systemctl", "stop", name, check=False)
    run("systemctl", "reset-failed", check=False)
    run("nft", "flush", "ruleset")
    # What a careless peer left, or the port would stay taken.
    run("ss", "-K", "state", "all", "sport", "=", ":8001")
    for folder in (DROP_INS, REQUESTS):
        shutil.rmtree(folder, ignore_errors=True)
    OPTIONS.unlink(missing_ok=True)
    board(pathlib.Path("/quelt"))
    for path in (*pathlib.Path("/tmp").iterdir(), *pathlib.Path("/dev/shm").iterdir()):
        if not path.name.startswith("systemd-"):
            shutil.rmtree(path) if path.is_dir() else path.unlink()
    for name in (f"{UNIT}.service", f"{UNIT}-idle.service", f"{UNIT}-idle.timer"):
        write(UNITS / name, delivered(SYSTEMD / name))
    for tool in (PACKAGING / "libexec").iterdir():
        write(LIBEXEC / tool.name, delivered(tool), 0o755)
    run("systemctl", "daemon-reload")


def board(into: pathlib.Path) -> None:
    """The sample board in a folder that stays the same one."""
    into.mkdir(exist_ok=True)
    for path in into.iterdir():
        shutil.rmtree(path) if path.is_dir() else path.unlink()
    shutil.copytree(_board(), into, dirs_exist_ok=True)


@functools.cache
def _board() -> pathlib.Path:
    into = pathlib.Path("/root/board")
    run(ROOT / "board/make", into)
    return into


def drop_in(*lines: str) -> None:
    """More lines for the service."""
    write(DROP_INS / "test.conf", "\n".join(("[Service]", *lines, "")))
    run("systemctl", "daemon-reload")


def make_strict() -> None:
    write(DROP_INS / "strict.conf", delivered(SYSTEMD / "strict.conf"))
    run("chgrp", "-R", "zondar", "/quelt/db")
    run("chmod", "-R", "g+rwX", "/quelt/db")
    run("chmod", "g+s", "/quelt/db")
    run("systemctl", "daemon-reload")


def start() -> None:
    machine.began = time.time()
    run("systemctl", "start", UNIT)
    serves()


def serves() -> None:
    up = lab.wait_for(takes_connections, 30.0)
    expect(up, f"does not serve: {run('journalctl', '-n', '20')}")


def takes_connections() -> bool:
    with contextlib.suppress(OSError):
        lab.end_of_empty_connection(5.0)
        return True
    return False


def property_of(name: str, unit: str = UNIT) -> str:
    return run("systemctl", "show", "--property", name, "--value", unit).strip()


def main_pid() -> int:
    return int(property_of("MainPID"))


def restarts() -> int:
    return int(property_of("NRestarts"))


def journal(unit: str = UNIT, **fields: str) -> list[dict[str, str]]:
    """The journal's lines of a unit since the start, those of the manager about it too."""
    run("journalctl", "--sync", check=False)
    since = f"@{machine.began:.6f}"
    lines = run("journalctl", "--unit", unit, "--output", "json", "--since", since)
    entries = [json.loads(line) for line in lines.splitlines() if line.startswith("{")]
    return [entry for entry in entries if fields.items() <= entry.items()]


def logged(text: str, unit: str = UNIT, **fields: str) -> bool:
    """Waits for a line."""
    return lab.wait_for(
        lambda: any(text in entry["MESSAGE"] for entry in journal(unit, **fields)), 20.0
    )


# A script that cannot be asked to end.
DEAF = ("trap '' TERM", "echo $$ > /quelt/db/pid", "while :; do sleep 1; done")


def hang() -> int:
    """Makes the daemon run such a script; its process."""
    script(NETWORK_SCRIPT, *DEAF)
    lab.send(lab.frame(3, b"\x4410.1.2.3\0"))
    path = pathlib.Path("/quelt/db/pid")
    expect(lab.wait_for(lambda: path.exists() and path.read_text().endswith("\n")), "no script")
    return int(path.read_text())


def runs(pid: int) -> bool:
    with contextlib.suppress(OSError):
        return "State:\tZ" not in pathlib.Path(f"/proc/{pid}/status").read_text()
    return False


def identified() -> None:
    expect(lab.ask(4).startswith(b"ZND"), "no identification")


def bad_frame() -> None:
    """One that fails its checksum, of which the daemon tells on standard error."""
    lab.send(bytes.fromhex("a5 04 00 00 00 00 00"))


def lose_an_accept(pid: int) -> None:
    """The descriptors that the daemon has are all that it may have: no further master is accepted."""
    lab.end_of_empty_connection()
    taken = {int(name) for name in os.listdir(f"/proc/{pid}/fd")}
    room = next(number for number in itertools.count() if number not in taken)
    resource.prlimit(pid, resource.RLIMIT_NOFILE, (room, room))
    with contextlib.suppress(OSError):  # the daemon may end at once
        lab.end_of_empty_connection()


REPLAY_ENDED = "guard-replay: the daemon carries out old requests again: it is ended"


def ignores_sigpipe(pid: int) -> bool:
    lines = pathlib.Path(f"/proc/{pid}/status").read_text().splitlines()
    ignored = next(line for line in lines if line.startswith("SigIgn"))
    return int(ignored.split()[1], 16) & 1 << 12 != 0


def ask_for_network() -> None:
    """The request that runs the board's network script."""
    equal(lab.ask(3, b"\x4410.1.2.3\0"), b"")


def probe() -> dict[str, Any]:
    """What a script of the board may do in the service as it is."""
    return json.loads(run_in_service("exec python3 /usr/local/lib/probe.py"))


def run_in_service(*lines: str) -> str:
    """What a script of the board prints, as the daemon's child."""
    script(NETWORK_SCRIPT, "exec > /quelt/db/printed 2>&1", *lines)
    ask_for_network()
    return pathlib.Path("/quelt/db/printed").read_text()


@contextlib.contextmanager
def unit_file(name: str, *lines: str) -> Iterator[None]:
    """A unit of the test's own."""
    path = write(pathlib.Path("/etc/systemd/system") / name, "\n".join((*lines, "")))
    run("systemctl", "daemon-reload")
    try:
        yield
    finally:
        run("systemctl", "stop", name, check=False)
        path.unlink()
        run("systemctl", "daemon-reload")


def one(case: Case, spoiled: Spoiled | None) -> str:
    """Plays a case; what is wrong, or nothing."""
    global machine
    machine = Machine(spoiled)
    try:
        case.play()
    except (Failed, OSError, ValueError, subprocess.TimeoutExpired) as problem:
        return "".join(traceback.format_exception_only(problem)).strip()
    return ""


def play(cases: list[Case], spoil: bool) -> int:
    """How many failed. With `spoil`, each case is played with its unit spoiled, and fails when it
    does not notice."""
    failed = 0
    for case in cases:
        problem = one(case, case.spoiled if spoil else None)
        if spoil:
            what = f"{case.spoiled.line or '(nothing)'} -> {case.spoiled.by or '(nothing)'}"
            bad = not (machine.touched and problem)
            text = f"{what}: {problem.splitlines()[0] if problem else 'passes'}"
        else:
            bad, text = bool(problem), problem
        failed += bad
        print(f"{'FAILED' if bad else 'ok'}  {case.name}{': ' + text if text else ''}", flush=True)
    return failed


def install() -> None:
    """What the packages would."""
    for source, path in (
        (ROOT / "build/release/app/zondar_net_receiver", "/usr/sbin/zondar_net_receiver"),
        (ROOT / "tests/supervision/probe.py", "/usr/local/lib/probe.py"),
    ):
        shutil.copy(source, path)
    run("useradd", "--system", "--user-group", "--uid", "900", "zondar")
