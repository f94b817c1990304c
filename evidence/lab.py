"""The laboratory of the evidence scripts: private worlds, the sample board, the daemon in them, and
the master's side of the wire.

A script calls enter() first: it builds the daemon and starts the script again in tests/sandbox. There
run_cases() runs a function over many cases, each in a process of its own with its own loopback, /quelt
and /tmp, so port 8001 is free and the board fresh every time.
"""

import contextlib
import ctypes
import fcntl
import functools
import os
import pathlib
import select
import shutil
import signal
import socket
import sqlite3
import struct
import subprocess
import sys
import tempfile
import time
import traceback
from collections import Counter
from collections.abc import Callable, Iterable, Iterator
from multiprocessing import connection as pipes
from typing import Any, NoReturn

ROOT = pathlib.Path(__file__).resolve().parent.parent
PORT = 8001
CONFIGURATION = pathlib.Path("/quelt/db/config_local.sqlite")
STATE = pathlib.Path("/quelt/db/temp_local.sqlite")
PATIENCE = 60.0  # seconds for what must happen at last


# ------------------------------------------------------------------------------- private worlds

_CLONE_NEWNS, _CLONE_NEWNET = 0x00020000, 0x40000000
_MS_RDONLY, _MS_REMOUNT, _MS_BIND = 0x1, 0x20, 0x1000
_SIOCSIFFLAGS, _IFF_UP, _IFF_RUNNING = 0x8914, 0x1, 0x40
_libc = ctypes.CDLL(None, use_errno=True)
_preset = "release"


def enter(preset: str = "release", *more: str) -> None:
    """Goes on inside the sandbox with the daemon, and `more` targets, built as `preset`; outside of
    it, never returns."""
    global _preset
    _preset = preset
    if os.environ.get("ZONDAR_SANDBOX"):
        return
    os.chdir(ROOT)
    for command in (
        ["tools/install-dependencies", "evidence"],
        ["cmake", "--preset", preset],
        ["cmake", "--build", f"build/{preset}", "--target", "zondar_net_receiver", *more],
    ):
        done = subprocess.run(command, stdout=subprocess.DEVNULL, check=False)
        if done.returncode != 0:
            sys.exit(f"{command[0]} failed with status {done.returncode}")
    script = str(pathlib.Path(sys.argv[0]).resolve())
    rights = ["--cap-add", "CAP_SYS_ADMIN"]  # over the sandbox's own mounts and networks
    os.execv("tests/sandbox", ["tests/sandbox", *rights, "/usr/bin/python3", script, *sys.argv[1:]])


def _libc_call(name: str, *arguments: Any) -> None:
    if getattr(_libc, name)(*arguments) != 0:
        raise OSError(ctypes.get_errno(), name)


def mount_tmpfs(path: pathlib.Path, options: str = "") -> None:
    """An empty file system of this world's own, such as one of "size=64k"."""
    path.mkdir(parents=True, exist_ok=True)
    _libc_call("mount", b"tmpfs", str(path).encode(), b"tmpfs", 0, options.encode())


def remount(path: pathlib.Path, read_only: bool) -> None:
    flags = _MS_REMOUNT | (_MS_RDONLY if read_only else 0)
    _libc_call("mount", b"tmpfs", str(path).encode(), b"tmpfs", flags, b"")


def bind(source: pathlib.Path, target: pathlib.Path) -> None:
    """Shows `source` at `target`."""
    _libc_call("mount", str(source).encode(), str(target).encode(), None, _MS_BIND, None)


def new_network() -> None:
    """A loopback that nothing has used, for what starts from now on: no port is still held there."""
    _libc_call("unshare", _CLONE_NEWNET)
    with socket.socket(socket.AF_INET, socket.SOCK_DGRAM) as loopback:
        request = struct.pack("16sh14x", b"lo", _IFF_UP | _IFF_RUNNING)
        fcntl.ioctl(loopback, _SIOCSIFFLAGS, request)


def _new_world() -> None:
    _libc_call("unshare", _CLONE_NEWNS)
    new_network()
    mount_tmpfs(pathlib.Path("/quelt"))
    new_board()
    mount_tmpfs(pathlib.Path("/tmp"))


def new_board() -> None:
    """The board as delivered, for a daemon that is not running."""
    shutil.copytree(_board(), "/quelt", dirs_exist_ok=True)
    for path in (CONFIGURATION, STATE):
        pathlib.Path(f"{path}-journal").unlink(missing_ok=True)


@functools.cache
def _board() -> pathlib.Path:
    """The sample board as delivered, made once a script, where every world sees it."""
    board = pathlib.Path(tempfile.mkdtemp(dir="/dev/shm"))
    subprocess.run([ROOT / "board/make", board], check=True)
    return board


def _case(function: Callable[[Any], Any], argument: Any, reply: Any) -> None:
    try:
        _new_world()
        reply.send((function(argument), None))
    except BaseException:  # the parent tells of it
        reply.send((None, traceback.format_exc()))
    reply.close()
    os._exit(0)


def run_cases(
    function: Callable[[Any], Any], arguments: Iterable[Any], jobs: int = 2, limit: float = 600.0
) -> Iterator[tuple[Any, Any]]:
    """(argument, result) of each case as it ends, `jobs` at once, each in a world of its own. A case
    that raises, or takes longer than `limit` seconds, ends the script."""
    _board()
    running: dict[Any, tuple[int, Any, float]] = {}
    waiting = iter(arguments)
    try:
        while True:
            while len(running) < jobs:
                try:
                    argument = next(waiting)
                except StopIteration:
                    break
                ours, theirs = pipes.Pipe(duplex=False)
                sys.stdout.flush()
                pid = os.fork()
                if pid == 0:
                    os.setpgid(0, 0)
                    ours.close()
                    _case(function, argument, theirs)
                theirs.close()
                running[ours] = (pid, argument, time.monotonic() + limit)
            if not running:
                return
            ready = pipes.wait(list(running), 1.0)
            for reply in ready:
                pid, argument, _ = running.pop(reply)
                try:
                    result, problem = reply.recv()
                except EOFError:
                    result, problem = None, "the case ended without a word"
                _end_group(pid)
                if problem is not None:
                    sys.exit(f"case {argument!r}: {problem}")
                yield argument, result
            for pid, argument, end in running.values():
                if time.monotonic() > end:
                    sys.exit(f"case {argument!r}: no end after {limit:.0f} s")
    finally:
        for pid, _, _ in running.values():
            _end_group(pid)


# Figures by their name, and what was not as it should be.
Found = tuple[Counter[str], list[str]]
Families = dict[str, tuple[Callable[..., Found], list[tuple[str, ...]]]]


def run_families(families: Families, preset: str, *more: str) -> NoReturn:
    """A script's main: runs each family's function over its cases, in worlds of their own, prints
    what failed and the figures. The command line names families; without one, all of them."""
    script = "/".join(pathlib.Path(sys.argv[0]).resolve().parts[-2:])
    wanted = sys.argv[1:] or list(families)
    for name in wanted:
        if name not in families:
            sys.exit(f"{script}: no cases of the name {name!r}; there are: {', '.join(families)}")
    enter(preset, *more)
    start = time.monotonic()
    cases = [(name, arguments) for name in wanted for arguments in families[name][1]]
    played: Counter[str] = Counter()
    figures: Counter[str] = Counter()
    failed = 0

    def play(case: tuple[str, tuple[str, ...]]) -> Found:
        try:
            return families[case[0]][0](*case[1])
        except (OSError, ValueError):  # no answer, or none to the request
            return Counter(), [traceback.format_exc()]

    for (name, arguments), (found, problems) in run_cases(play, cases):
        played[name] += 1
        figures.update(found)
        failed += bool(problems)
        for problem in problems:
            print(f"{name}, {' '.join(arguments)}: {problem}", flush=True)
    for name, number in played.items():
        print(f"{name}: {number} cases")
    for figure, number in sorted(figures.items()):
        print(f"{figure}: {number}")
    print(f"cases: {len(cases)}, failed: {failed}, seconds: {time.monotonic() - start:.0f}")
    sys.exit(failed != 0)


def _end_group(pid: int) -> None:
    with contextlib.suppress(ProcessLookupError):
        os.killpg(pid, signal.SIGKILL)
    os.waitpid(pid, 0)


# ----------------------------------------------------------------------------------- the daemon


def without_extra(program: bytes) -> bytes:
    """The daemon with what SQLite does when it is not told otherwise."""
    extra, full = b"PRAGMA synchronous=EXTRA", b"PRAGMA synchronous=FULL "
    if program.count(extra) != 1:
        sys.exit(f"{extra.decode()} does not stand once in the daemon")
    return program.replace(extra, full)


def built(program: str) -> pathlib.Path:
    return ROOT / "build" / _preset / program


class Daemon:
    """The real daemon as a child process of this world, in a group of its own. `launcher` are words
    before its own, such as an strace command; `options` stand before the two database paths;
    `program` is the one that is started, under the build folder. What it prints is kept in memory,
    unless `discard`."""

    def __init__(
        self,
        options: Iterable[str] = (),
        launcher: Iterable[str] = (),
        prepare: Callable[[], None] = lambda: None,
        discard: bool = False,
        program: str = "app/zondar_net_receiver",
    ) -> None:
        self._output = open(os.devnull, "w+b") if discard else tempfile.TemporaryFile()
        command = [*launcher, str(built(program)), *options, str(CONFIGURATION), str(STATE)]

        def before() -> None:
            signal.signal(signal.SIGPIPE, signal.SIG_IGN)  # as a supervisor does
            prepare()

        self.process = subprocess.Popen(
            command, stdin=subprocess.DEVNULL, stdout=self._output, stderr=self._output,
            preexec_fn=before, restore_signals=False, start_new_session=True, bufsize=0,
        )  # fmt: skip
        self.launched = bool(tuple(launcher))

    @property
    def pid(self) -> int:
        """The daemon's own, also under a launcher."""
        if not self.launched:
            return self.process.pid
        children = pathlib.Path(f"/proc/{self.process.pid}/task/{self.process.pid}/children")
        return int(children.read_text().split()[0])

    def running(self) -> bool:
        return self.process.poll() is None

    def serves(self, patience: float = PATIENCE) -> bool:
        """Waits until it takes connections; False when it ends before."""
        end = time.monotonic() + patience
        while self.running() and time.monotonic() < end:
            try:
                end_of_empty_connection()
                return True
            except OSError:
                time.sleep(0.01)
        return False

    def wait(self, patience: float = PATIENCE) -> int | None:
        """Its exit status, minus the signal's number when one ended it; None when it does not end."""
        try:
            return self.process.wait(patience)
        except subprocess.TimeoutExpired:
            return None

    def stop(self, number: int = signal.SIGTERM) -> int | None:
        """The same after a signal to the daemon; killed with its scripts when it does not end."""
        with contextlib.suppress(ProcessLookupError, IndexError, FileNotFoundError):
            os.kill(self.pid, number)
        status = self.wait()
        with contextlib.suppress(ProcessLookupError):
            os.killpg(self.process.pid, signal.SIGKILL)
        if status is None:
            self.process.wait()
        return status

    def output(self) -> str:
        """What it printed so far, standard output and error together."""
        self._output.seek(0)
        return self._output.read().decode("latin-1")

    def resident(self) -> tuple[int, int]:
        """Its resident memory and the anonymous part of it, in KiB."""
        fields = dict(
            line.split(":", 1)
            for line in pathlib.Path(f"/proc/{self.pid}/smaps_rollup").read_text().splitlines()[1:]
        )
        return int(fields["Rss"].split()[0]), int(fields["Anonymous"].split()[0])

    def descriptors(self) -> int:
        """Between two connections, when it has read the last one to its end."""
        counts = []
        for _ in range(20):
            counts.append(len(os.listdir(f"/proc/{self.pid}/fd")))
            time.sleep(0.01)
        return min(counts)


class SystemLog:
    """This world's /dev/log from now on. It takes ten lines that are not yet asked for, then
    whoever logs waits."""

    def __init__(self) -> None:
        path = pathlib.Path(tempfile.mkdtemp()) / "log"
        self._socket = socket.socket(socket.AF_UNIX, socket.SOCK_DGRAM | socket.SOCK_NONBLOCK)
        self._socket.bind(str(path))
        pathlib.Path("/dev/log").touch()  # /dev is one for all worlds
        bind(path, pathlib.Path("/dev/log"))

    def lines(self) -> list[str]:
        """The texts since the last call, without time, name and priority."""
        packets = []
        with contextlib.suppress(BlockingIOError):
            while True:
                packets.append(self._socket.recv(8192).decode())
        return [packet.split(": ", 1)[1] for packet in packets]

    def discard(self) -> None:
        """Reads for ever, for a thread of its own."""
        while True:
            select.select([self._socket], [], [])
            self.lines()


# ---------------------------------------------------------------------------- the master's side

_START = 0xA5


def frame(command: int, info: bytes = b"") -> bytes:
    """A request in checksum mode: start byte, control, three header bytes, length, info, checksum;
    behind the control byte each start byte is sent twice."""
    plain = bytearray([_START, command, 0, 0, 0, len(info)]) + info
    if (-sum(plain[1:])) & 0xFF == _START:
        plain[4] = 1  # so that the checksum never has to be stuffed
    plain.append(-sum(plain[1:]) & 0xFF)
    return bytes(plain[:2]) + bytes(plain[2:]).replace(b"\xa5", b"\xa5\xa5")


def info_of(answer: bytes, command: int) -> bytes:
    """The info of an answer; ValueError when it is not a whole one to this command."""
    plain = answer[:2] + answer[2:].replace(b"\xa5\xa5", b"\xa5")
    whole = len(plain) >= 7 and len(plain) == 7 + plain[5] and sum(plain[1:]) & 0xFF == 0
    if not whole or plain[0] != _START or plain[1] != command:
        raise ValueError(f"not an answer to command {command}: {answer.hex(' ')}")
    return plain[6:-1]


def connect(patience: float = PATIENCE) -> socket.socket:
    return socket.create_connection(("127.0.0.1", PORT), patience)


def read_to_end(peer: socket.socket) -> bytes:
    parts = []
    while part := peer.recv(4096):
        parts.append(part)
    return b"".join(parts)


def send(request: bytes) -> None:
    """Sends on a connection of its own, closed behind it."""
    with connect() as peer:
        peer.sendall(request)


def reset_at_end(peer: socket.socket) -> None:
    """Closing it leaves nothing on either side, so that the daemon's port is free at once."""
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, struct.pack("ii", 1, 0))


def collect(patience: float = PATIENCE) -> bytes:
    """What the daemon sends on the next connection, up to its end."""
    with connect(patience) as peer:
        reset_at_end(peer)
        return read_to_end(peer)


def ask(command: int, info: bytes = b"", patience: float = PATIENCE) -> bytes:
    """The info of the answer to a request."""
    send(frame(command, info))
    return info_of(collect(patience), command)


def end_of_empty_connection(patience: float = PATIENCE) -> bytes:
    """Connects, sends nothing, reads to the end: one failed read attempt for the daemon, or an
    answer that was still waiting to be collected."""
    with connect(patience) as peer:
        peer.shutdown(socket.SHUT_WR)
        return read_to_end(peer)


def resynchronise(patience: float = PATIENCE) -> None:
    """Brings the daemon's receive machine back to its start: 501 failed attempts in a row."""
    failed = 0
    while failed < 501:
        failed = 0 if end_of_empty_connection(patience) else failed + 1


def wait_for(condition: Callable[[], bool], patience: float = PATIENCE) -> bool:
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.01)
    return True


def silent(peer: socket.socket, seconds: float) -> bool:
    return not select.select([peer], [], [], seconds)[0]


# -------------------------------------------------------------------------------- the databases


def rows(path: pathlib.Path, sql: str) -> list[tuple[Any, ...]]:
    with contextlib.closing(sqlite3.connect(path, isolation_level=None, timeout=30)) as database:
        return database.execute(sql).fetchall()


def contents() -> dict[str, Any]:
    """Every cell of both databases: "EntradaAV 1 Brillo" (table, row id, column) to its value."""
    cells = {}
    for path in (CONFIGURATION, STATE):
        with contextlib.closing(sqlite3.connect(path, timeout=30)) as database:
            names = database.execute("SELECT name FROM sqlite_schema WHERE type='table'").fetchall()
            for (table,) in names:
                cursor = database.execute(f'SELECT rowid, * FROM "{table}"')
                columns = [column[0] for column in cursor.description[1:]]
                for key, *values in cursor:
                    cells.update((f"{table} {key} {name}", value)
                                 for name, value in zip(columns, values))  # fmt: skip
    return cells


def changes(before: dict[str, Any], after: dict[str, Any]) -> dict[str, tuple[Any, Any]]:
    """The cells that differ: name to (old, new); what is not there is ..."""
    return {
        name: (before.get(name, ...), after.get(name, ...))
        for name in sorted(before.keys() | after.keys())
        if before.get(name, ...) != after.get(name, ...)
    }


def intact() -> bool:
    return all(rows(path, "PRAGMA integrity_check") == [("ok",)] for path in (CONFIGURATION, STATE))
