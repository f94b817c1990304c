"""Who reaches the endpoint: the idle timer and the firewall, with the daemon as a service."""

import pathlib
import re
import socket
import subprocess
import time

import lab
from bench import (
    OPTIONS, PACKAGING, UNIT, Case, clear, delivered, equal, expect, identified,
    journal, logged, run, start, write,
)  # fmt: skip
from service_cases import changed, gone

IDLE = f"{UNIT}-idle"


def idle_after(seconds: int) -> None:
    clear()
    write(OPTIONS, f"IDLE_SECONDS={seconds}\n")
    start()


def look() -> None:
    """Runs the service that the timer starts."""
    run("systemctl", "start", f"{IDLE}.service")


def ended(peer: socket.socket) -> bool:
    peer.settimeout(0.5)
    try:
        return peer.recv(1) == b""
    except TimeoutError:
        return False
    except ConnectionError:
        return True


def accepted(peer: socket.socket) -> bool:
    port = f":{peer.getsockname()[1]}"
    lines = run("ss", "-HOtne", "state", "established", "sport", "=", ":8001", "dport", "=", port)
    return bool(lines) and " ino:0 " not in lines


def holder() -> socket.socket:
    """A peer that has the endpoint."""
    peer = lab.connect()
    expect(lab.wait_for(lambda: accepted(peer)), "is not accepted")
    return peer


def frees_an_idle_peer() -> None:
    idle_after(1)
    peer = holder()
    name = "127.0.0.1:%d" % peer.getsockname()[1]
    time.sleep(2.1)
    look()
    expect(ended(peer), "the idle peer is left")
    lab.reset_at_end(peer)
    peer.close()
    lab.resynchronise()
    identified()
    expect(logged(f"freed the endpoint from {name}, silent for", IDLE, PRIORITY="5"), journal(IDLE))


def leaves_a_fresh_peer() -> None:
    idle_after(600)
    with holder() as peer:
        time.sleep(1)
        look()
        expect(not ended(peer), "a fresh peer is ended")


def leaves_an_active_peer() -> None:
    """One that keeps sending, and has been there for longer than the limit."""
    idle_after(3)
    with holder() as peer:
        for _ in range(5):
            peer.sendall(b"\0")
            time.sleep(1)
        peer.sendall(b"\0")
        look()
        expect(not ended(peer), "an active peer is ended")


def leaves_the_queue() -> None:
    """Whoever waits behind an idle peer is served when that one has been freed."""
    idle_after(1)
    first = holder()
    second, third = lab.connect(), lab.connect()
    time.sleep(2.1)
    look()
    expect(ended(first), "the idle peer is left")
    expect(not ended(second) and not ended(third), "one of the queue is ended")
    expect(lab.wait_for(lambda: accepted(second) or accepted(third)), "the next one is not served")
    for peer in (first, second, third):
        lab.reset_at_end(peer)
        peer.close()


def is_silent_without_work() -> None:
    idle_after(1)
    look()
    look()
    equal([entry["MESSAGE"] for entry in journal(IDLE)], [])


def says_what_is_wrong() -> None:
    idle_after(1)
    text = OPTIONS.read_text()
    write(OPTIONS, "IDLE_SECONDS=soon\n")
    run("systemctl", "start", f"{IDLE}.service", check=False)
    expect(logged("IDLE_SECONDS is no number of seconds: soon", IDLE), journal(IDLE))
    write(OPTIONS, text)


def has_one_right_alone() -> None:
    """Without it, it says so."""
    idle_after(1)
    with holder() as peer:
        time.sleep(2.1)
        run("systemctl", "start", f"{IDLE}.service", check=False)
        said = logged("cannot end the connection of 127.0.0.1:", IDLE)
        expect(not said and ended(peer), "cannot end it")


def comes_by_itself() -> None:
    idle_after(1)
    identified()  # or the daemon would end after half a minute
    peer = holder()
    run("systemctl", "start", f"{IDLE}.timer")
    expect(lab.wait_for(lambda: ended(peer), 90.0), "the timer does nothing")
    peer.close()
    second = holder()
    expect(lab.wait_for(lambda: ended(second), 90.0), "the timer does nothing again")
    second.close()
    run("systemctl", "stop", f"{IDLE}.timer")


SILENT = "        if (silent + 0 > limit + 0)"
IDLE_CASES = [
    Case("idle: frees an idle peer", frees_an_idle_peer,
         changed("RestrictAddressFamilies=AF_NETLINK", "RestrictAddressFamilies=AF_UNIX")),
    Case("idle: takes its seconds from the file", frees_an_idle_peer,
         gone(f"EnvironmentFile=-/etc/default/{UNIT}")),
    Case("idle: leaves a fresh peer", leaves_a_fresh_peer, gone(SILENT)),
    Case("idle: leaves an active peer", leaves_an_active_peer, gone(SILENT)),
    Case("idle: leaves the queue, and lets it move up", leaves_the_queue,
         changed("    NF == 0 || / ino:0 / || $1 != 0 { next }", "    NF == 0 { next }")),
    Case("idle: is silent without work", is_silent_without_work, gone("LogLevelMax=notice")),
    Case("idle: says what is wrong", says_what_is_wrong,
         gone('    *[!0-9]*) fail "IDLE_SECONDS is no number of seconds: $seconds" ;;')),
    Case("idle: needs one right", has_one_right_alone, gone("AmbientCapabilities=CAP_NET_ADMIN")),
    Case("idle: the timer looks again and again", comes_by_itself, gone("OnUnitInactiveSec=30")),
]  # fmt: skip


# ------------------------------------------------------------------------------------- firewall

MASTERS = PACKAGING / "nftables/zondar-masters.nft"
OURS, ALLOWED, OTHER = "192.168.5.1", "192.168.5.7", "10.9.9.9"


def on_the_wire() -> None:
    """A second machine of the board's network, which has an allowed address and another one."""
    clear()
    start()
    run("ip", "netns", "delete", "master", check=False)
    run("ip", "link", "delete", "board", check=False)  # else gone only in a moment
    for command in (
        "ip netns add master",
        "ip link add board type veth peer name remote",
        "ip link set remote netns master",
        f"ip address add {OURS}/24 dev board",
        "ip link set board up",
        "ip route add 10.9.9.0/24 dev board",
        f"nsenter --net=/run/netns/master ip address add {ALLOWED}/24 dev remote",
        f"nsenter --net=/run/netns/master ip address add {OTHER}/32 dev remote",
        "nsenter --net=/run/netns/master ip link set remote up",
    ):
        run(*command.split())


# Connects from an address, and sends a request; says "served" when its answer comes on a second
# connection, "nothing" when no connection comes about within 2 s.
MASTER = f"""
import socket, sys
def connect():
    return socket.create_connection(("{OURS}", 8001), 2, (sys.argv[1], 0))
try:
    with connect() as peer:
        peer.sendall(bytes.fromhex("a504000000 00fc"))
except TimeoutError:
    print("nothing")
    sys.exit()
with connect() as peer:
    peer.setsockopt(socket.SOL_SOCKET, socket.SO_LINGER, b"\\1\\0\\0\\0\\0\\0\\0\\0")
    print("served" if peer.recv(100) else "nothing")
"""


def from_address(address: str) -> str:
    return run("nsenter", "--net=/run/netns/master", "python3", "-c", MASTER, address).strip()


def served() -> list[str]:
    return [from_address(ALLOWED), from_address(OTHER)]


def load() -> None:
    run("nft", "-f", write("/root/masters.nft", delivered(MASTERS)))


def lets_masters_in() -> None:
    on_the_wire()
    equal(served(), ["served", "served"])  # as long as nothing is loaded
    load()
    equal(served(), ["served", "nothing"])
    identified()  # from the board itself


def can_be_loaded_again() -> None:
    on_the_wire()
    for _ in range(3):
        load()
    equal(served(), ["served", "nothing"])
    equal(run("nft", "list", "ruleset").count("drop"), 1)


def takes_and_loses_a_master() -> None:
    """By the commands that stand in the file."""
    on_the_wire()
    load()
    commands = re.findall(r"^#     (nft .*?)  ", MASTERS.read_text(), re.MULTILINE)
    for verb, expected in (
        ("add", "served"), ("delete element", "nothing"), ("delete table", "served")
    ):  # fmt: skip
        command = next(text for text in commands if text.startswith(f"nft {verb}"))
        run("sh", "-c", command.replace("10.20.30.40", OTHER))
        equal(from_address(OTHER), expected)


def cuts_a_lost_master_off() -> None:
    """With its open connection."""
    on_the_wire()
    load()
    run("nft", "add", "element", "ip", "zondar", "masters", f"{{ {OTHER} }}")
    program = (f"import socket; s = socket.create_connection(('{OURS}', 8001), 5, ('{OTHER}', 0));"
               "print('in', flush=True); input(); s.sendall(bytes.fromhex('a50400000000fc'));"
               "print('sent', flush=True); input()")  # fmt: skip
    with subprocess.Popen(
        ["nsenter", "--net=/run/netns/master", "python3", "-c", program],
        stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True,
    ) as peer:  # fmt: skip
        assert peer.stdin and peer.stdout
        equal(peer.stdout.readline(), "in\n")
        run("nft", "delete", "element", "ip", "zondar", "masters", f"{{ {OTHER} }}")
        peer.stdin.write("\n")
        peer.stdin.flush()
        equal(peer.stdout.readline(), "sent\n")
        time.sleep(1)
        lines = run("ss", "-HOtni", "state", "established", "src", f"{OURS}:8001")
        peer.kill()
    expect(lines != "" and "bytes_received" not in lines, f"its request arrives: {lines}")


def loads_at_boot() -> None:
    """As the file says: copied, included by Debian's configuration, loaded by its service."""
    on_the_wire()
    folder = pathlib.Path("/etc/nftables.d")
    folder.mkdir(exist_ok=True)
    write(folder / MASTERS.name, MASTERS.read_text())
    configuration = pathlib.Path("/etc/nftables.conf")
    before = configuration.read_text()
    include = re.search(r'include ".*"', MASTERS.read_text())
    assert include
    try:
        configuration.write_text(f"{before}\n{include[0]}\n")
        for _ in range(2):
            run("systemctl", "restart", "nftables")
            equal(served(), ["served", "nothing"])
    finally:
        configuration.write_text(before)
        run("systemctl", "stop", "nftables")
    equal(served(), ["served", "served"])


FIREWALL_CASES = [
    Case("firewall: lets masters in and nobody else", lets_masters_in,
         gone("        tcp dport 8001 ip saddr != @masters drop")),
    Case("firewall: lets the board itself in", lets_masters_in,
         gone('        iifname "lo" accept')),
    Case("firewall: can be loaded again", can_be_loaded_again, gone("delete table ip zondar")),
    Case("firewall: takes and loses a master", takes_and_loses_a_master,
         gone("        tcp dport 8001 ip saddr != @masters drop")),
    Case("firewall: cuts a lost master off", cuts_a_lost_master_off,
         changed("        tcp dport 8001 ip saddr != @masters drop",
                 "        tcp dport 8001 ct state new ip saddr != @masters drop")),
    Case("firewall: is loaded at boot", loads_at_boot, None),
]  # fmt: skip
