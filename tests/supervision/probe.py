"""What a script of the board may do: tries it, and prints a line of JSON, of each attempt "ok" or
the error's name. Nothing here could have an effect that stays, on the clock in particular. The
numbers of system calls are those of x86-64."""

import ctypes
import errno
import json
import os
import socket
import stat
import subprocess
from collections.abc import Callable
from typing import Any

libc = ctypes.CDLL(None, use_errno=True)
libc.mmap.restype = ctypes.c_void_p


def attempt(what: Callable[[], Any]) -> str:
    try:
        what()
    except OSError as error:
        return errno.errorcode[error.errno or 0]
    return "ok"


def call(name: str, *arguments: Any) -> Callable[[], None]:
    """A function of the C library that gives -1 when it fails."""

    def make() -> None:
        ctypes.set_errno(0)
        if getattr(libc, name)(*arguments) in (-1, ctypes.c_void_p(-1).value):
            raise OSError(ctypes.get_errno(), name)

    return make


def create(folder: str) -> Callable[[], None]:
    def make() -> None:
        path = f"{folder}/probe"
        os.close(os.open(path, os.O_CREAT | os.O_WRONLY, 0o666))
        os.unlink(path)

    return make


def of_family(name: str) -> Callable[[], None]:
    return lambda: socket.socket(getattr(socket, name), socket.SOCK_DGRAM).close()


def mode_of_new_file() -> str:
    os.close(os.open("/quelt/db/new", os.O_CREAT | os.O_WRONLY, 0o666))
    mode = os.stat("/quelt/db/new").st_mode
    os.unlink("/quelt/db/new")
    return oct(stat.S_IMODE(mode))


def make_setuid() -> None:
    os.close(os.open("/quelt/db/setuid", os.O_CREAT | os.O_WRONLY, 0o755))
    try:
        os.chmod("/quelt/db/setuid", 0o4755)
    finally:
        os.unlink("/quelt/db/setuid")


class Timespec(ctypes.Structure):
    _fields_ = (("seconds", ctypes.c_long), ("nanoseconds", ctypes.c_long))


# No clock can show this: the kernel refuses it before it asks for rights.
NO_TIME = Timespec(0, 2_000_000_000)
PRIORITY_OUT_OF_RANGE = ctypes.byref(ctypes.c_int(1000))
FIFO, NEW_USER, LINUX32 = 1, 0x10000000, 8
WRITE_AND_EXECUTE, PRIVATE_ANONYMOUS = 0x6, 0x22

ATTEMPTS: dict[str, Callable[[], Any]] = {
    **{f"create in {folder}": create(folder) for folder in (
        "/etc/open", "/usr/open", "/var/open", "/tmp", "/run/open", "/quelt/open", "/quelt/db",
        "/run/zondar-net-receiver")},  # fmt: skip
    "see /home/open": lambda: os.stat("/home/open"),
    "see /dev/extra": lambda: os.stat("/dev/extra"),
    "see /proc/1": lambda: os.stat("/proc/1"),
    "see /proc/uptime": lambda: os.stat("/proc/uptime"),
    "see /dev/shm": lambda: open("/dev/shm/left", "w").close(),
    "list modules": lambda: os.listdir("/usr/lib/modules"),
    **{name: of_family(name) for name in (
        "AF_UNIX", "AF_INET", "AF_INET6", "AF_NETLINK", "AF_VSOCK")},  # fmt: skip
    "packet socket": lambda: socket.socket(socket.AF_PACKET, socket.SOCK_DGRAM).close(),
    "setuid": make_setuid,
    "new user namespace": call("unshare", NEW_USER),
    "personality": call("personality", LINUX32),
    "realtime": call("sched_setscheduler", 0, FIFO, PRIORITY_OUT_OF_RANGE),
    "write and execute": call("mmap", None, 4096, WRITE_AND_EXECUTE, PRIVATE_ANONYMOUS, -1, 0),
    "modify_ldt": call("syscall", 154, 0, None, 0),
    "perf_event_open": call("syscall", 298, None, 0, -1, -1, 0),
    "sysfs": call("syscall", 139, 3),
    "ioperm": call("ioperm", 0, 0, 0),
    "swapon": call("swapon", b"/nowhere", 0),
    "mount": call("mount", b"none", b"/nowhere", b"tmpfs", 0, None),
    "chroot": call("chroot", b"/nowhere"),
    "sethostname": call("sethostname", b"cabecera-1", 10),
    "adjtimex": call("syscall", 159, bytes(512)),
    "nice": call("setpriority", 0, 0, 0),
    "clock_settime": call("syscall", 227, 0, ctypes.byref(NO_TIME)),
}


def status() -> dict[str, str]:
    with open("/proc/self/status", encoding="ascii") as file:
        return {key: value.strip() for key, value in (line.split(":", 1) for line in file)}


facts: dict[str, Any] = {
    "uid": os.getuid(),
    "status": status(),
    "mount namespace": os.readlink("/proc/self/ns/mnt"),
    "mode of a new file": mode_of_new_file(),
    "hostname": subprocess.run(["hostname"], capture_output=True, text=True).stdout.strip(),
    **{f"read-only {path}": bool(os.statvfs(path).f_flag & os.ST_RDONLY)
       for path in ("/sys", "/sys/fs/cgroup")},  # fmt: skip
}
# One by one: what is tried last may change what comes behind it.
for name, what in ATTEMPTS.items():
    facts[name] = attempt(what)
print(json.dumps(facts))
