"""A board that qemu emulates: Debian's kernel for 32-bit ARM, one of two userlands, the board's own files
on a disk of their own. The images are those of make-images; what changes in them is not kept."""

import base64
import ctypes
import fcntl
import hashlib
import json
import os
import pathlib
import random
import shlex
import shutil
import signal
import socket
import subprocess
import sys
import tempfile
import time
from typing import IO, Any

TREE = pathlib.Path(__file__).resolve().parents[2]
MADE = TREE / "build/emulated"
TOOL = TREE / "build/release/zondarctl/zondarctl"
USERLANDS = ("systemd", "busybox")

# The addresses at both ends of the cable.
CABLE, HERE, BOARD = "tap0", "10.0.2.2", "10.0.2.15"
_CLONE_NEWNET = 0x40000000

# The variable that names the folder of a private namespace.
PLACE = "BOARD_PLACE"

# Where a user who is not root has it not.
os.environ["PATH"] += ":/usr/sbin:/sbin"

# Translated code takes what the emulator is given; this much is enough for a board.
ACCELERATOR = "tcg,tb-size=96"


class Failed(Exception):
    """What the board did not do."""


def make_network() -> None:
    """The network of the namespace that this thread is in: a cable to the board, and each port of
    the loopback is the board's endpoint. The emulator's own network hands connections on in
    another order than they were made."""
    rules = f"""
        table ip board {{
            chain output {{
                type nat hook output priority -100
                ip daddr 127.0.0.1 meta l4proto tcp dnat to {BOARD}:8001
            }}
            chain postrouting {{
                type nat hook postrouting priority 100
                oifname {CABLE} ip saddr 127.0.0.1 masquerade
            }}
        }}"""
    for command in (
        "ip link set lo up",
        f"ip tuntap add dev {CABLE} mode tap",
        f"ip address add {HERE}/24 dev {CABLE}",
        f"ip link set {CABLE} up",
        "sysctl -q net.ipv4.conf.all.route_localnet=1",
    ):
        if subprocess.run(command.split(), check=False).returncode != 0:
            raise Failed(f"no network of its own: {command}")
    subprocess.run(["nft", "-f", "-"], input=rules, text=True, check=True)


def own_network() -> None:
    """A namespace with such a network for this thread and what it starts from now on."""
    libc = ctypes.CDLL(None, use_errno=True)
    if libc.unshare(_CLONE_NEWNET) != 0:
        raise OSError(ctypes.get_errno(), "no network of its own")
    make_network()


class Line:
    """A line of text at a time over a socket of the emulator's."""

    def __init__(self, path: pathlib.Path, seconds: float) -> None:
        self.socket = socket.socket(socket.AF_UNIX)
        self.socket.settimeout(seconds)
        until = time.monotonic() + seconds
        while True:
            try:
                self.socket.connect(str(path))
                break
            except (FileNotFoundError, ConnectionRefusedError):
                if time.monotonic() > until:
                    raise
                time.sleep(0.01)
        self.rest = b""

    def send(self, line: str) -> None:
        self.socket.sendall(line.encode() + b"\n")

    def receive(self, seconds: float) -> str:
        until = time.monotonic() + seconds
        while b"\n" not in self.rest:
            self.socket.settimeout(max(0.001, until - time.monotonic()))
            more = self.socket.recv(1 << 16)
            if not more:
                raise Failed("the emulator ended")
            self.rest += more
        line, self.rest = self.rest.split(b"\n", 1)
        return line.decode()

    def close(self) -> None:
        self.socket.close()


class Machine:
    """Starts with `with` and ends behind it.

    userland  one of USERLANDS
    state     a folder of save(), to go on from there; userland, memory and icount are those of it
    log       a file that gets all writes and flushes of the board's disk, as blklogwrites has them
    words     more words for the kernel's command line
    icount    an instruction takes a nanosecond of the board's time, and idleness none of ours
    memory    in MiB
    disks     serial number and file of more disks, which are written to
    console   what becomes of the serial console; a file by default
    port      of the loopback, for tool(); one at random by default
    """

    def __init__(self, userland: str = "busybox", *, state: pathlib.Path | None = None,
                 log: pathlib.Path | None = None, words: str = "", icount: bool = False,
                 memory: int = 256, disks: dict[str, pathlib.Path] | None = None,
                 console: str = "", port: int = 0) -> None:  # fmt: skip
        self.saved = json.loads((state / "machine.json").read_text()) if state else {}
        self.userland = self.saved.get("userland", userland)
        self.memory = self.saved.get("memory", memory)
        self.icount = self.saved.get("icount", icount)
        self.state, self.log, self.words = state, log, words
        self.disks = disks or {}
        self.console_words = console
        # Of its own, since the tool's lock of a module is one for each address and port.
        self.port = port or random.randrange(20_000, 60_000)
        self.place: pathlib.Path = MADE / "nobody"  # the board's files
        self.images: IO[str] | None = None  # kept from being made anew
        self.process: subprocess.Popen[bytes] | None = None
        self.control: Line | None = None
        self.agent: Line | None = None
        self.began = 0.0

    def __enter__(self) -> "Machine":
        self.place = pathlib.Path(tempfile.mkdtemp(dir=os.environ.get(PLACE)))
        self.images = (MADE / "lock").open()
        fcntl.flock(self.images, fcntl.LOCK_SH)
        try:
            self._make_disks()
            self.start()
        except BaseException:
            self.__exit__()
            raise
        return self

    def __exit__(self, *_: object) -> None:
        self.cut()
        if self.images:
            self.images.close()
        shutil.rmtree(self.place, ignore_errors=True)

    # -------------------------------------------------------------------------------- the emulator

    def _make_disks(self) -> None:
        """Both disks are written beside what they are made of. A logged one has no other layer: its
        writes are the file's."""
        for name, image in (("root", f"{self.userland}.ext4"), ("quelt", "quelt.ext4")):
            base = self.state / f"{name}.qcow2" if self.state else MADE / image
            if name == "quelt" and self.log:
                subprocess.run(["qemu-img", "convert", "-O", "raw", base, self.place / "quelt.raw"],
                               check=True)  # fmt: skip
                continue
            subprocess.run(
                ["qemu-img", "create", "-q", "-f", "qcow2", "-b", base.resolve(),
                 "-F", "qcow2" if self.state else "raw", self.place / f"{name}.qcow2"],
                check=True,
            )  # fmt: skip

    def _disk(self, serial: str, node: dict[str, Any]) -> list[str]:
        return ["-blockdev", json.dumps({**node, "node-name": serial}),
                "-device", f"virtio-blk-device,drive={serial},serial={serial}"]  # fmt: skip

    def _command(self) -> list[str]:
        def file(path: pathlib.Path) -> dict[str, Any]:
            return {"driver": "file", "filename": str(path)}

        def grown(name: str) -> dict[str, Any]:
            return {"driver": "qcow2", "file": file(self.place / f"{name}.qcow2")}

        board = grown("quelt")
        if self.log:
            self.log.touch()
            board = {
                "driver": "blklogwrites",
                "file": {"driver": "raw", "file": file(self.place / "quelt.raw")},
                # Nobody else has it, and a machine that goes on from a state could not lock it.
                "log": {"driver": "raw", "file": {**file(self.log), "locking": "off"}},
            }
        console = self.console_words or f"file:{self.place}/console"
        command = [
            "qemu-system-arm", "-machine", "virt,highmem=off", "-cpu", "cortex-a15", "-m", str(self.memory),
            "-accel", ACCELERATOR, "-display", "none", "-nodefaults",
            "-rtc", f"base=utc,clock={'vm' if self.icount else 'host'}",
            "-kernel", str(MADE / "vmlinuz"), "-initrd", str(MADE / "initrd.gz"),
            "-append", f"console=ttyAMA0 quiet panic=5 {self.words}",
            *self._disk("root", grown("root")), *self._disk("quelt", board),
        ]  # fmt: skip
        for serial, path in self.disks.items():
            command += self._disk(serial, {"driver": "raw", "file": file(path)})
        command += [
            "-netdev", f"tap,id=net,ifname={CABLE},script=no,downscript=no",
            "-device", "virtio-net-device,netdev=net,mac=00:1a:2b:3c:4d:5e",
            "-device", "virtio-serial-device",
            "-chardev", f"socket,id=agent,path={self.place}/agent,server=on,wait=off",
            "-device", "virtserialport,chardev=agent,name=agent",
            "-serial", console,
            "-qmp", f"unix:{self.place}/control,server=on,wait=off",
        ]  # fmt: skip
        if self.icount:
            command += ["-icount", "shift=0,sleep=off"]
        if self.state:
            command += ["-incoming", "exec:cat " + shlex.quote(f"{self.state}/memory")]
        return command

    def start(self) -> None:
        """Power on, with the disks as they are."""
        self.began = time.monotonic()
        with (self.place / "errors").open("ab") as errors:
            self.process = subprocess.Popen(
                self._command(), stdin=None if self.console_words else subprocess.DEVNULL,
                stderr=errors)  # fmt: skip
        try:
            self.control = Line(self.place / "control", 10)
            self.control.receive(10)
            self.order("qmp_capabilities")
            self.agent = Line(self.place / "agent", 10)
            if self.state:
                self._expect_status("inmigrate", gone=True)
                self.order("cont")
                self._expect_status("running")
        except (OSError, Failed) as error:
            problem = (self.place / "errors").read_text()
            self.cut()
            raise Failed(f"the emulator does not start: {problem or error}") from error

    def cut(self) -> None:
        """Takes the power away: nothing more is written."""
        if self.process:
            self.process.send_signal(signal.SIGKILL)
            self.process.wait()
        for line in (self.control, self.agent):
            if line:
                line.close()
        self.process = self.control = self.agent = None
        self.state = None  # what was restored counts once

    def wait(self, seconds: float) -> None:
        """Until the board has switched itself off."""
        assert self.process
        self.process.wait(seconds)
        self.cut()

    def order(self, name: str, **arguments: Any) -> Any:
        """A command of the emulator's control protocol, and what it returns."""
        assert self.control
        self.control.send(json.dumps({"execute": name, "arguments": arguments}))
        while True:
            answer = json.loads(self.control.receive(60))
            if "return" in answer:
                return answer["return"]
            if "error" in answer:
                raise Failed(f"{name}: {answer['error']['desc']}")

    def _expect_status(self, status: str, gone: bool = False) -> None:
        until = time.monotonic() + 30
        while (self.order("query-status")["status"] == status) == gone:
            if time.monotonic() > until:
                raise Failed(f"the emulator is {'still' if gone else 'not'} {status}")
            time.sleep(0.01)

    def save(self, folder: pathlib.Path) -> None:
        """Writes the state of the running board, which ends by it."""
        if self.log or self.disks:
            raise Failed("a board with a log or more disks cannot be saved")
        new = folder.with_name(folder.name + ".new")
        shutil.rmtree(new, ignore_errors=True)
        new.mkdir(parents=True)
        self.order("stop")
        self.order("migrate", uri="exec:cat > " + shlex.quote(f"{new}/memory"))
        while (found := self.order("query-migrate")["status"]) != "completed":
            if found == "failed":
                raise Failed("the state cannot be written")
            time.sleep(0.02)
        # Complete only when the emulator has ended.
        self.order("quit")
        assert self.process
        self.process.wait(30)
        self.cut()
        for name in ("root", "quelt"):
            shutil.copyfile(self.place / f"{name}.qcow2", new / f"{name}.qcow2")
        kept = {"userland": self.userland, "memory": self.memory, "icount": self.icount,
                "emulator": emulator()}  # fmt: skip
        (new / "machine.json").write_text(json.dumps(kept))
        shutil.rmtree(folder, ignore_errors=True)
        new.rename(folder)

    # ----------------------------------------------------------------------------------- the board

    def run(self, command: str, check: bool = True, timeout: float = 60) -> str:
        """What a shell command as root of the board prints, both streams together."""
        status, output = self.attempt(command, timeout)
        if check and status != 0:
            raise Failed(f"{command}: status {status}: {output}")
        return output

    def attempt(self, command: str, timeout: float = 60) -> tuple[int, str]:
        assert self.agent
        self.agent.send(base64.b64encode(command.encode()).decode())
        try:
            status, _, output = self.agent.receive(timeout).partition(" ")
        except TimeoutError as error:
            raise Failed(f"{command}: no answer within {timeout} s") from error
        return int(status), base64.b64decode(output).decode(errors="replace")

    def put(self, path: str, content: bytes, mode: int = 0o644) -> None:
        """A file of a few hundred kilobytes at the most: it goes over the line."""
        text = base64.encodebytes(content).decode()
        self.run(f"mkdir -p $(dirname {path}) && base64 -d > {path} << END && chmod {mode:o} {path}\n"
                 f"{text}END\n")  # fmt: skip

    def console(self) -> str:
        """What came over the serial console, when that is a file."""
        path = self.place / "console"
        return path.read_text(errors="replace") if path.exists() else ""

    def tool(self, *words: str) -> subprocess.CompletedProcess[str]:
        """`zondarctl` at this board. An emulated board takes its time."""
        return subprocess.run(
            [TOOL, "--host", "127.0.0.1", "--port", str(self.port), "--timeout", "15", *words],
            capture_output=True, text=True, check=False, stdin=subprocess.DEVNULL,
        )  # fmt: skip

    def answers(self) -> bool:
        return self.tool("status").returncode == 0

    def wait_for_answer(self, seconds: float = 180) -> float:
        """The seconds from the start to the first right answer."""
        while not self.answers():
            if time.monotonic() - self.began > seconds:
                raise Failed(f"no answer within {seconds} s; the console: {self.console()[-2000:]}")
            if self.process and self.process.poll() is not None:
                raise Failed(f"the emulator ended: {(self.place / 'errors').read_text()}")
            time.sleep(0.1)
        return time.monotonic() - self.began


def prepare() -> None:
    """What everybody needs beside this file: the tool and the images."""
    if PLACE in os.environ:
        return
    subprocess.run([TREE / "tools/install-dependencies", "board"], check=True)
    configure = ["cmake", "--preset", "release"]
    subprocess.run(configure, cwd=TREE, check=True, stdout=subprocess.DEVNULL)
    build = ["cmake", "--build", "--preset", "release", "--target", "zondarctl"]
    built = subprocess.run(build, cwd=TREE, stdout=subprocess.PIPE, text=True, check=False)
    if built.returncode != 0:
        sys.exit(built.stdout)
    subprocess.run([TREE / "board/emulation/make-images"], check=True)


def emulator() -> str:
    """What a saved state goes on with: the emulator, and how it is started."""
    version = subprocess.run(["qemu-system-arm", "--version"], capture_output=True, check=True).stdout
    return hashlib.sha256(version + pathlib.Path(__file__).read_bytes()).hexdigest()[:16]


def saved_state(userland: str) -> pathlib.Path:
    """A board that has answered once; switched on and saved when there is none to go on from."""
    states = MADE / "states"
    states.mkdir(parents=True, exist_ok=True)
    with (MADE / f"{userland}.lock").open("w") as lock:
        fcntl.flock(lock, fcntl.LOCK_EX)
        state = states / userland
        kept = state / "machine.json"
        if not kept.exists() or json.loads(kept.read_text()).get("emulator") != emulator():
            with Machine(userland) as board:
                board.wait_for_answer()
                board.run("sync")
                board.save(state)
    return state


def in_private_namespace(told: pathlib.Path | None = None) -> None:
    """Goes on as a child with a network (make_network) and processes of its own, whose end is this
    process's end; nothing of either stays. A file may be told the child's number, for nsenter."""
    if PLACE in os.environ:
        try:
            make_network()
        except Failed as problem:
            sys.exit(str(problem))
        return
    signal.signal(signal.SIGINT, lambda *_: None)  # the child's business
    with tempfile.TemporaryDirectory(prefix="board-") as place:
        os.environ[PLACE] = place
        child = subprocess.Popen(
            ["unshare", "--user", "--map-root-user", "--net", "--pid", "--mount-proc", "--fork",
             "--kill-child", sys.executable, *sys.argv],
        )  # fmt: skip
        for number in (signal.SIGTERM, signal.SIGHUP):
            signal.signal(number, lambda *_: child.kill())
        if told:
            children = pathlib.Path(f"/proc/{child.pid}/task/{child.pid}/children")
            while child.poll() is None:
                if found := children.read_text().split():
                    told.write_text(found[0])
                    break
                time.sleep(0.01)
        status = child.wait()
    sys.exit(status if status >= 0 else 128 - status)
