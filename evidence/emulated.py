"""What the evidence scripts do with emulated boards (board/emulation/machine.py)."""

import pathlib
import subprocess
import sys
import tempfile

import lab

sys.path.insert(0, str(lab.ROOT / "board/emulation"))
import machine

DAEMON = "/usr/sbin/zondar_net_receiver"


def extract(image: pathlib.Path, what: str, into: pathlib.Path) -> None:
    subprocess.run(["debugfs", "-R", f"{what} {into}", image], check=True, capture_output=True)


def take_extra_away(board: machine.Machine) -> None:
    """Starts the daemon again as lab.without_extra() has it, and gives the board such a script."""
    with tempfile.TemporaryDirectory() as folder:
        daemon = pathlib.Path(folder) / "daemon"
        extract(machine.MADE / "busybox.ext4", f"dump {DAEMON}", daemon)
        board.put(f"{DAEMON}.new", lab.without_extra(daemon.read_bytes()), 0o755)
    board.run(
        f"mv {DAEMON}.new {DAEMON} && sv -w 60 restart zondar-net-receiver &&"
        f" sed -i s/EXTRA/FULL/ /quelt/script/reset_factory_default.sh && sync"
    )
