"""The service folder for runit, under a runsv of its own."""

import contextlib
import os
import pathlib
import shutil
import subprocess
import time
from collections.abc import Iterator

import lab
from bench import (
    OPTIONS, PACKAGING, Case, bad_frame, clear, delivered, equal, expect, hang, identified,
    ignores_sigpipe, run, runs, serves, write,
)  # fmt: skip
from service_cases import changed, gone

SOURCE = PACKAGING / "runit"
SERVICE = pathlib.Path("/etc/sv/zondar-net-receiver")
LOG = pathlib.Path("/var/log/zondar-net-receiver")


@contextlib.contextmanager
def supervised(options: str = "") -> Iterator[None]:
    clear()
    write(OPTIONS, options)
    for folder in (SERVICE, LOG):
        shutil.rmtree(folder, ignore_errors=True)
    for path in SOURCE.rglob("*"):
        if path.is_file():
            write(SERVICE / path.relative_to(SOURCE), delivered(path), 0o755)
    with subprocess.Popen(["runsv", SERVICE], stdin=subprocess.DEVNULL) as supervisor:
        try:
            serves()
            yield
        finally:
            run("sv", "-w", "30", "exit", SERVICE, check=False)
            with contextlib.suppress(ProcessLookupError):
                os.killpg(int((SERVICE / "supervise/group").read_text()), 9)
            supervisor.kill()


def main_pid() -> int:
    text = (SERVICE / "supervise/pid").read_text()
    state = (SERVICE / "supervise/stat").read_text()
    return int(text) if text and state.startswith("run") else 0


def stop() -> None:
    run("sv", "-w", "60", "down", SERVICE)


def starts_and_serves() -> None:
    with supervised('OPTIONS="-s 5 -l 112"\n'):
        identified()
        arguments = pathlib.Path(f"/proc/{main_pid()}/cmdline").read_text().split("\0")
        equal(arguments[1:-1], ["-p", "", "-s", "5", "-l", "112",
                                "/quelt/db/config_local.sqlite",
                                "/quelt/db/temp_local.sqlite"])  # fmt: skip


def comes_back(signal: int) -> None:
    with supervised():
        before = main_pid()
        moment = time.monotonic()
        os.kill(before, signal)
        expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
        expect(time.monotonic() - moment >= 5.0, "is started again without a pause")
        serves()
        identified()


def stop_ends_all() -> None:
    with supervised():
        pid = hang()
        stop()
        expect(not runs(pid), "the script goes on")


def stop_ends_a_deaf_daemon() -> None:
    with supervised():
        pid = main_pid()
        os.kill(pid, 19)  # SIGSTOP: TERM waits
        run("sv", "-w", "60", "down", SERVICE)
        expect(not runs(pid), "the daemon goes on")


def its_end_ends_its_scripts() -> None:
    with supervised():
        before, script = main_pid(), hang()
        os.kill(before, 9)
        expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
        expect(not runs(script), "the script goes on")


def keeps_its_streams() -> None:
    with supervised():
        pid = main_pid()
        equal([os.readlink(f"/proc/{pid}/fd/{number}") for number in (0, 1)], ["/dev/null"] * 2)
        bad_frame()
        expect(lab.wait_for(lambda: "[ERROR]" in (LOG / "current").read_text()), "no error logged")
        expect(ignores_sigpipe(pid), "SIGPIPE is not ignored")


RUNIT_CASES = [
    Case("runit: starts, with its options", starts_and_serves,
         gone("[ ! -r /etc/default/zondar-net-receiver ] || . /etc/default/zondar-net-receiver")),
    Case("runit: comes back after SIGTERM", lambda: comes_back(15),
         gone("grep -q 'want down' supervise/stat || sleep 5")),
    Case("runit: comes back after SIGKILL", lambda: comes_back(9),
         gone("grep -q 'want down' supervise/stat || sleep 5")),
    Case("runit: a stop ends hanging scripts", stop_ends_all,
         gone('kill -s KILL -- "-$group" 2> /dev/null')),
    Case("runit: a stop ends a daemon that hangs", stop_ends_a_deaf_daemon,
         gone("    [ \"$(cat supervise/group)\" != \"$group\" ] || kill -s KILL -- \"-$group\"")),
    Case("runit: its end ends its scripts", its_end_ends_its_scripts,
         gone('kill -s KILL -- "-$group" 2> /dev/null')),
    Case("runit: keeps its streams, and drained", keeps_its_streams,
         changed("exec 2>&1 > /dev/null < /dev/null", "exec > /dev/null < /dev/null")),
    Case("runit: ignores SIGPIPE", keeps_its_streams, gone("trap '' PIPE")),
]  # fmt: skip
