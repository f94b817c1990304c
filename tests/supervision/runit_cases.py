"""The service folder for runit, under a runsv of its own."""

import contextlib
import os
import pathlib
import resource
import shutil
import signal
import socket
import subprocess
import time
from collections.abc import Iterator

import lab
from bench import (
    OPTIONS, PACKAGING, REPLAY_ENDED, Case, bad_frame, clear, delivered, equal, expect, hang,
    identified, ignores_sigpipe, lose_an_accept, property_of, run, runs, serves, write,
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
            supervisor.kill()
            group = int((SERVICE / "supervise/group").read_text())
            for number in (group, -group):  # its own when it leads none
                with contextlib.suppress(ProcessLookupError):
                    os.kill(number, signal.SIGKILL)


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


def comes_back(number: int) -> None:
    with supervised():
        before = main_pid()
        moment = time.monotonic()
        os.kill(before, number)
        expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
        expect(time.monotonic() - moment >= 5.0, "is started again without a pause")
        serves()
        identified()


def stop_ends_all() -> None:
    with supervised():
        pid = hang()
        stop()
        expect(not runs(pid), "the script goes on")


@contextlib.contextmanager
def unread_log() -> Iterator[None]:
    """Whoever logs waits, a daemon that is told to end as well."""
    reader = int(property_of("MainPID", "systemd-journald"))
    os.kill(reader, signal.SIGSTOP)
    senders: list[socket.socket] = []
    try:
        sent = True
        while sent:
            sent = False
            senders.append(socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK))
            senders[-1].connect("/dev/log")
            with contextlib.suppress(BlockingIOError):
                while True:
                    senders[-1].send(b"x")
                    sent = True
        yield
    finally:
        os.kill(reader, signal.SIGCONT)


def stop_ends_a_waiting_daemon() -> None:
    with supervised():
        pid = main_pid()
        with unread_log():
            stop()
        expect(not runs(pid), "the daemon goes on")


def its_end_ends_its_scripts() -> None:
    with supervised():
        before, script = main_pid(), hang()
        os.kill(before, 9)
        expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
        expect(not runs(script), "the script goes on")


def comes_back_from_a_replay() -> None:
    with supervised():
        identified()
        before = main_pid()
        lose_an_accept(before)
        expect(lab.wait_for(lambda: main_pid() not in (0, before)), "is not started again")
        serves()
        identified()
        expect(REPLAY_ENDED in (LOG / "current").read_text(), "is not logged")


def has_room_for_descriptors() -> None:
    with supervised():
        equal(resource.prlimit(main_pid(), resource.RLIMIT_NOFILE)[0], 1024)


def keeps_its_streams() -> None:
    with supervised():
        pid = main_pid()
        equal([os.readlink(f"/proc/{pid}/fd/{number}") for number in (0, 1)], ["/dev/null"] * 2)
        bad_frame()
        expect(lab.wait_for(lambda: "[ERROR]" in (LOG / "current").read_text()), "no error logged")
        expect(ignores_sigpipe(pid), "SIGPIPE is not ignored")


CHPST = "exec chpst -P -o 1024 /usr/libexec/zondar-net-receiver/guard-replay \\"
RUNIT_CASES = [
    Case("runit: starts, with its options", starts_and_serves,
         gone("[ ! -r /etc/default/zondar-net-receiver ] || . /etc/default/zondar-net-receiver")),
    Case("runit: comes back after SIGTERM", lambda: comes_back(15),
         gone("grep -q 'want down' supervise/stat || sleep 5")),
    Case("runit: comes back after SIGKILL", lambda: comes_back(9),
         gone("grep -q 'want down' supervise/stat || sleep 5")),
    Case("runit: a stop ends hanging scripts", stop_ends_all,
         changed(CHPST, CHPST.replace("chpst -P -o 1024 ", ""))),
    Case("runit: comes back when it carries out old requests again", comes_back_from_a_replay,
         changed(CHPST, "exec chpst -P -o 1024 \\")),
    Case("runit: has room for descriptors", has_room_for_descriptors,
         changed(CHPST, CHPST.replace("-o 1024", "-o 512"))),
    Case("runit: a stop ends a daemon whose log is not read", stop_ends_a_waiting_daemon, None),
    Case("runit: its end ends its scripts", its_end_ends_its_scripts,
         gone('kill -KILL "-$group" 2> /dev/null')),
    Case("runit: keeps its streams, and drained", keeps_its_streams,
         changed("exec 2>&1 > /dev/null < /dev/null", "exec > /dev/null < /dev/null")),
    Case("runit: ignores SIGPIPE", keeps_its_streams, gone("trap '' PIPE")),
]  # fmt: skip
