"""Many real daemons, each on a board of its own at an address of its own, and what asks them: the
exporter, Prometheus. For demo/fleet and for evidence/fleet.

Whoever uses this runs in a world of its own with an empty /quelt, and ends with it.
"""

import contextlib
import json
import os
import pathlib
import random
import re
import shutil
import signal
import socket
import sqlite3
import subprocess
import time
import urllib.parse
import urllib.request
from collections.abc import Iterable

ROOT = pathlib.Path(__file__).resolve().parent.parent
BUILD = ROOT / "build/release"
DAEMON = BUILD / "app/zondar_net_receiver"
ZONDARCTL = BUILD / "zondarctl/zondarctl"
EXPORTER = BUILD / "exporter/zondar_exporter"
ON_BOARD = BUILD / "tests/support/on_board"
OWN_ADDRESS = BUILD / "tests/support/libown_address.so"
TARGETS = ("zondar_net_receiver", "zondarctl", "zondar_exporter", "on_board", "own_address")

PORT = 8001
LOCKS = pathlib.Path("/run/lock")  # shared with programs outside of the sandbox
MOST = 64_000  # addresses of the form below
PAUSE = 5.0  # seconds, as a board's supervision has it
PATIENCE = 60.0  # seconds within which what is waited for happens on a busy machine, too
SITES = ("norte", "sur", "levante")


class NotStarted(Exception):
    """One line for the person who started it."""


def address(module: int) -> str:
    return f"127.1.{module // 250}.{module % 250 + 1}"


def instance(module: int) -> str:
    return f"{address(module)}:{PORT}"


def site(module: int) -> str:
    return SITES[module % len(SITES)]


def name(module: int) -> str:
    return f"{site(module)}-{module // len(SITES) + 1}"


def listening() -> set[str]:
    """Who takes connections, as "127.1.0.1:8001", as the kernel has it: asking would be an exchange."""
    found = set()
    for line in pathlib.Path("/proc/self/net/tcp").read_text().splitlines()[1:]:
        local, _, state = line.split()[1:4]
        if state == "0A":
            host, port = local.split(":")
            found.add(f"{socket.inet_ntoa(bytes.fromhex(host)[::-1])}:{int(port, 16)}")
    return found


def wait_for(condition, patience: float = PATIENCE) -> bool:
    end = time.monotonic() + patience
    while not condition():
        if time.monotonic() > end:
            return False
        time.sleep(0.02)
    return True


class Modules:
    """Daemons with their boards below `folder`; keep() is to be called again and again."""

    def __init__(self, size: int, folder: pathlib.Path) -> None:
        self.size = size
        self.folder = folder
        self.ends = 0  # of daemons that nobody ended
        self.dead: set[int] = set()
        self.hung: set[int] = set()
        self._daemons: dict[int, subprocess.Popen] = {}
        self._again: dict[int, float] = {}  # when those that ended start anew
        self._log = open(folder / "daemons.log", "wb")
        subprocess.run([ROOT / "board/make", folder / "sample"], check=True)
        for module in range(size):
            self._make_board(module)

    def start(self) -> None:
        """All of them; they listen soon."""
        for module in range(self.size):
            self._start(module)

    def listen(self) -> set[int]:
        open_now = listening()
        return {module for module in range(self.size) if instance(module) in open_now}

    def keep(self) -> None:
        """Starts those again that have ended, a pause later."""
        now = time.monotonic()
        for module, daemon in self._daemons.items():
            if module in self.dead or daemon.poll() is None:
                continue
            if module not in self._again:
                self.ends += 1
                self._again[module] = now + PAUSE
            elif now >= self._again[module]:
                self._start(module)

    def hang(self, modules: Iterable[int]) -> None:
        """They take connections and do nothing with them."""
        for module in modules:
            self.hung.add(module)
            self._daemons[module].send_signal(signal.SIGSTOP)

    def resume(self) -> None:
        for module in self.hung:
            self._daemons[module].send_signal(signal.SIGCONT)
        self.hung.clear()

    def kill(self, modules: Iterable[int]) -> None:
        """Nobody listens there."""
        for module in modules:
            self.dead.add(module)
            self._daemons[module].kill()
            self._daemons[module].wait()

    def revive(self) -> None:
        for module in self.dead:
            self._start(module)
        self.dead.clear()

    def end(self) -> None:
        for daemon in self._daemons.values():
            daemon.kill()
        for daemon in self._daemons.values():
            daemon.wait()

    def database(self, module: int, which: str) -> pathlib.Path:
        return self._board(module) / f"db/{which}_local.sqlite"

    def _board(self, module: int) -> pathlib.Path:
        return self.folder / str(module)

    # What all have alike stands there once.
    def _make_board(self, module: int) -> None:
        sample, board = self.folder / "sample", self._board(module)
        shutil.copytree(sample, board, copy_function=os.link)
        mac = module.to_bytes(3, "big").hex(":")
        software = "2.3.7" if module % 20 == 19 else "2.4.1"
        own_files = {
            "conf/quelt_numserie": f"ZN{2024002000 + module}\n",
            "script/MAC": f"#!/bin/sh\necho '00:1a:2b:{mac}'\n",
            "script/get_board_versions.sh": (sample / "script/get_board_versions.sh")
            .read_text().replace("2.4.1", software),
        }  # fmt: skip
        for path, text in own_files.items():
            (board / path).unlink()
            (board / path).write_text(text)
        for path in ("script/MAC", "script/get_board_versions.sh"):
            (board / path).chmod(0o755)
        for which in ("config", "temp"):
            database = self.database(module, which)
            database.unlink()
            shutil.copy(sample / "db" / database.name, database)
        with write_to(self.database(module, "config")) as configuration:
            configuration.execute(
                "UPDATE ConfiguracionGen SET Identificacion_Equipo = ?,"
                " Identificacion_Localizacion = ?, Ip_Address = ?, Modo_Salida = ?",
                (f"Cabecera {module + 1}", site(module),
                 f"192.168.{1 + module // 250}.{module % 250 + 1}", int(gives_ip(module))))  # fmt: skip
            for service in (0, 1):
                configuration.execute(
                    "UPDATE ServiciosSalida SET Nombre = ?, LCN = ? WHERE IdServicio = ?",
                    (f"Canal {2 * module + service + 1}", 2 * module + service + 1, service))  # fmt: skip

    def _start(self, module: int) -> None:
        self._again.pop(module, None)
        self._daemons[module] = subprocess.Popen(
            [ON_BOARD, self._board(module), "/usr/bin/env", f"LD_PRELOAD={OWN_ADDRESS}",
             f"ZONDAR_BIND={address(module)}", DAEMON, "-p", "", "/quelt/db/config_local.sqlite",
             "/quelt/db/temp_local.sqlite"],
            stdin=subprocess.DEVNULL, stdout=self._log, stderr=self._log,
            restore_signals=False,  # a supervisor has SIGPIPE ignored
        )  # fmt: skip


# ------------------------------------------------------------------------ the board's other processes


def gives_ip(module: int) -> bool:
    """Its output is IP, the others' is RF."""
    return module % 4 == 3


@contextlib.contextmanager
def write_to(path: pathlib.Path):
    """A short transaction, as the board's processes have them."""
    with contextlib.closing(sqlite3.connect(path, timeout=5, isolation_level=None)) as database:
        # What is lost in a crash of this machine is no harm.
        database.execute("PRAGMA synchronous = OFF")
        database.execute("BEGIN IMMEDIATE")
        yield database
        database.execute("COMMIT")


ALARMS = ("alarma_hw", "alarma_in", "alarma_cod", "alarma_si", "alarma_mod", "alarma_ip")
STAYS = 240.0  # seconds, an alarm in the mean
COMES = 4 * 3600.0  # seconds without it, in the mean


class Life:
    """What the modules measure and report: alarms come and go, bitrates vary."""

    EACH = 5.0  # seconds between two steps of a module, with many of them more
    MOST = 50  # steps in a second

    def __init__(self, modules: Modules, seed: int = 1) -> None:
        self._modules = modules
        self._random = random.Random(seed)
        self._alarms = [self._at_first(module) for module in range(modules.size)]
        self._period = max(self.EACH, modules.size / self.MOST)
        self._begin = time.monotonic()
        self._steps = 0

    def _possible(self, module: int) -> tuple[str, ...]:
        other = "alarma_mod" if gives_ip(module) else "alarma_ip"
        return tuple(alarm for alarm in ALARMS if alarm != other)

    def _at_first(self, module: int) -> set[str]:
        return {alarm for alarm in self._possible(module)
                if self._random.random() < STAYS / (STAYS + COMES)}  # fmt: skip

    def go_on(self) -> None:
        """The steps that are due, one module after the other."""
        due = int((time.monotonic() - self._begin) / self._period * self._modules.size)
        # A machine that stood still does not catch up.
        self._steps = max(self._steps, due - self._modules.size)
        while self._steps < due:
            self.step(self._steps % self._modules.size)
            self._steps += 1

    def step(self, module: int) -> None:
        alarms = self._alarms[module]
        for alarm in self._possible(module):
            change = STAYS if alarm in alarms else COMES
            if self._random.random() < self._period / change:
                alarms ^= {alarm}
        self._store(module, alarms)

    def _store(self, module: int, alarms: set[str]) -> None:
        def about(value: float) -> int:
            return round(value * self._random.uniform(0.93, 1.07))

        gone = "alarma_in" in alarms or "alarma_ip" in alarms
        streams = [0 if gone else about(8200), about(6700)]
        states = {alarm: str(int(alarm in alarms)) for alarm in ALARMS}
        states |= {
            "estado_sync": str(int(not alarms & {"alarma_hw", "alarma_mod"})),
            "estado_entradaAV_sync": "00000001" if "alarma_in" in alarms else "00000101",
            "estado_bitrate_IP_0": f"{streams[0]:X}",
            "estado_bitrate_IP_1": f"{streams[1]:X}",
        }
        with write_to(self._modules.database(module, "temp")) as state:
            state.executemany(
                "UPDATE alarmasEstado SET valor = ? WHERE nombre = ?",
                [(value, row) for row, value in states.items()])  # fmt: skip
            state.execute(
                "UPDATE Bitrate_Nulos SET Porcentaje = ?, Canal_1 = ?, Canal_2 = ?, Total = ?,"
                " Nivel = ?",
                (about(40 if gone else 12), *streams, 24_128_000, self._random.randint(-9, -3)))  # fmt: skip


class Somebody:
    """Who now and then changes a parameter of one of these modules, with our tool."""

    EVERY = 60.0  # seconds, in the mean

    def __init__(self, modules: Modules, asked: Iterable[int], seed: int = 2) -> None:
        self._modules = modules
        self._asked = set(asked)
        self._random = random.Random(seed)
        self._running: subprocess.Popen | None = None
        self._next = time.monotonic() + self.EVERY / 2

    def go_on(self) -> None:
        if self._running is not None and self._running.poll() is not None:
            self._running = None
        if self._running is not None or time.monotonic() < self._next:
            return
        self._next = time.monotonic() + self._random.expovariate(1 / self.EVERY)
        well = sorted(self._asked - self._modules.dead - self._modules.hung)
        if well:
            self._running = subprocess.Popen(
                [ZONDARCTL, "--host", instance(self._random.choice(well)), "set", self._change()],
                stdin=subprocess.DEVNULL, stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
            )  # fmt: skip

    def _change(self) -> str:
        return self._random.choice((
            f"EntradaAV.0.Brillo={self._random.randint(40, 90)}",
            f"EntradaAV.1.Contraste={self._random.randint(40, 90)}",
            f"ConfiguracionGen.Atenuacion={self._random.randint(0, 20)}",
            f"RFOut.Canal_Salida={self._random.randint(21, 48)}",
            f"ServiciosSalida.0.Nombre=Canal {self._random.randint(1, 999)} HD",
        ))  # fmt: skip


# ----------------------------------------------------------------------------------- who asks them


def targets_of(modules: Iterable[int]) -> str:
    """The file of targets, a line for each module."""
    rows = (json.dumps({"targets": [instance(module)],
                        "labels": {"name": name(module), "site": site(module)}})
            for module in modules)  # fmt: skip
    return "[\n" + ",\n".join(rows) + "\n]\n"


class Watcher:
    """A program with an HTTP port, which tells of its troubles in a file."""

    def __init__(self, folder: pathlib.Path, name: str, port: int, command: list) -> None:
        self.url = f"http://127.0.0.1:{port}"
        self._name = name
        self._log = folder / f"{name}.log"
        with open(self._log, "wb") as log:
            self.process = subprocess.Popen(
                command, cwd=folder, stdin=subprocess.DEVNULL, stdout=log, stderr=log)  # fmt: skip

    def wait(self, path: str) -> None:
        """Until it serves this path."""

        def ready() -> bool:
            self.look()
            with contextlib.suppress(OSError):
                get(self.url + path)
                return True
            return False

        if not wait_for(ready):
            raise NotStarted(f"{self._name} does not serve {path}")

    def look(self) -> None:
        """Tells when it has ended."""
        if self.process.poll() is not None:
            lines = self._log.read_text(errors="replace").strip().splitlines() or ["without a word"]
            raise NotStarted(f"{self._name} ended: {lines[-1]}")


def get(url: str, timeout: float = 10) -> str:
    with urllib.request.urlopen(url, timeout=timeout) as answer:
        return answer.read().decode()


def exporter(folder: pathlib.Path, port: int, *more: str) -> Watcher:
    targets = folder / "targets.json"
    bound = max(512, sum(len(group["targets"]) for group in json.loads(targets.read_text())))
    return Watcher(folder, "zondar_exporter", port, [
        EXPORTER, "--targets", targets, "--listen", f"127.0.0.1:{port}", "--probes", str(bound), *more,
    ])  # fmt: skip


def prometheus(folder: pathlib.Path, port: int, configuration: str) -> Watcher:
    """With the pages below `folder`."""
    data = folder / f"prometheus-{port}"
    data.mkdir()
    config = data / "prometheus.yml"
    config.write_text(configuration)
    return Watcher(folder, f"prometheus-{port}", port, [
        "/usr/bin/prometheus", f"--config.file={config}", f"--storage.tsdb.path={data}",
        f"--web.listen-address=127.0.0.1:{port}", f"--web.console.templates={folder}/consoles",
        f"--web.console.libraries={folder}/console_libraries", "--log.level=warn",
    ])  # fmt: skip


def configuration(folder: pathlib.Path, asked: int) -> str:
    """The example configuration with the places of this fleet, `asked` being the exporter's port."""
    text = (ROOT / "monitoring/prometheus.yml").read_text()
    for place, here in (
        (r"/etc/zondar/targets\.json", f"{folder}/targets.json"),
        (r"127\.0\.0\.1:9801", f"127.0.0.1:{asked}"),
        (r"/etc/prometheus/rules/", f"{ROOT}/monitoring/rules/"),
        # Somebody's Alertmanager on this machine must not tell of modules that are none.
        (r"(?m)^alerting:\n( .*\n)+", ""),
    ):
        text, found = re.subn(place, here, text)
        if found == 0:
            raise NotStarted(f"monitoring/prometheus.yml has no {place}")
    return text


def query(server: Watcher, expression: str) -> list[dict]:
    """The series of an instant query."""
    found = get(f"{server.url}/api/v1/query?" + urllib.parse.urlencode({"query": expression}))
    return json.loads(found)["data"]["result"]


def remove_locks(size: int) -> None:
    for module in range(size):
        with contextlib.suppress(OSError):  # there is none, or it is another user's
            (LOCKS / f"zondar-{address(module)}-{PORT}.lock").unlink()
