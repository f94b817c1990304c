"""The board with busybox: runit's folder or Buildroot's script, and nothing that systemd would do."""

from bench import NAME, Case, another, answers, equal, expect, idle, pid, until, zondar
from machine import Machine

BUILDROOT = {"words": "board.init=buildroot"}
SERVICE = "/etc/service/zondar-net-receiver"
SCRIPT = "/etc/init.d/S80zondar-net-receiver"
TRACE = "echo 'OPTIONS=\"-s 5 -l 112\"' >> /etc/default/zondar-net-receiver"
SCRIPTS = "/quelt/script"


def boot(board: Machine) -> str:
    return board.run("cat /proc/sys/kernel/random/boot_id")


def messages(board: Machine, text: str) -> list[str]:
    """Lines of the board's system log with this text, without their time."""
    found = board.run(f"grep -F '{text}' /var/log/messages", check=False).splitlines()
    return [line[16:] for line in found]


def logged(board: Machine, text: str, count: int = 1) -> None:
    until(lambda: len(messages(board, text)) >= count, f"{text!r} is not logged {count} times")


def stored(board: Machine, expression: str) -> str:
    return board.run(f"sqlite3 -readonly /quelt/db/config_local.sqlite 'SELECT {expression}'").strip()


def address(board: Machine) -> list[str]:
    words = board.run("ip -4 address show dev usb0").split()
    return [word for before, word in zip(words, words[1:]) if before == "inet"]


def loads_the_network_anew(board: Machine) -> None:
    expect("02:00:00:00:00:01" in board.run("cat /sys/class/net/usb0/address"), "has an address of its own")
    equal(address(board), ["192.168.1.50/24"])
    board.run("ip link set usb0 down; ip address flush dev usb0")
    before = pid(board)
    board.run(f"sv -w 30 restart {SERVICE}")
    another(board, before)
    answers(board)
    equal(address(board), ["192.168.1.50/24"])


def sets_the_network(board: Machine) -> None:
    zondar(board, "--yes", "set", "ConfiguracionGen.Ip_Mask", "255.255.0.0")
    equal(address(board), ["192.168.1.50/16"])
    zondar(board, "--yes", "set", "ConfiguracionGen.Ip_Address", "192.168.7.77")
    equal(address(board), ["192.168.7.77/16"])


def goes_back_to_the_factory(board: Machine) -> None:
    delivered = stored(board, "Nombre FROM ServiciosSalida LIMIT 1")
    zondar(board, "set", NAME, "Otro")
    equal(stored(board, "Nombre FROM ServiciosSalida LIMIT 1"), "Otro")
    zondar(board, "--yes", "reset-factory")
    equal(stored(board, "Nombre FROM ServiciosSalida LIMIT 1"), delivered)
    zondar(board, "set", NAME, "Otro")


def sets_the_clock(board: Machine) -> None:
    board.run("date -s '2026-03-04 05:06:07'")
    zondar(board, "--yes", "time", "10.20")
    equal(board.run("date '+%F %H:%M'"), "2026-03-04 10:20\n")
    zondar(board, "--yes", "date", "31.12.2037")
    equal(board.run("date '+%F'"), "2037-12-31\n")
    equal(zondar(board, "date").strip(), "31.12.2037")


def starts_anew_without_a_master(board: Machine) -> None:
    before = pid(board)
    board.run(f"sv -w 30 restart {SERVICE}")
    alone = another(board, before)
    another(board, alone)
    logged(board, f"ZONDAR_NET_RECEIVER[{alone}]: ZONDAR_NET_RECEIVER: No message received from client, "
           "restarting server")  # fmt: skip
    answers(board)


def ends_in_order(board: Machine) -> None:
    first = pid(board)
    board.run(f"{TRACE}; sv -w 30 restart {SERVICE}")
    before = another(board, first)
    answers(board)
    zondar(board, "set", NAME, "Ultimo")
    board.run(f"sv -w 15 down {SERVICE}")
    equal(pid(board), "")
    logged(board, "Se cierra")
    equal(messages(board, "")[-2:], [
        f"cabecera-1 local0.crit ZONDAR_NET_RECEIVER[{before}]: Exiting due to signal Terminated.",
        f"cabecera-1 daemon.err zondar_net_receiver[{before}]: "
        "Se cierra quelt_listener por recepcion señal LINUX",
    ])  # fmt: skip
    equal(board.run("ls /quelt/db"), "config_local.sqlite\ntemp_local.sqlite\n")
    board.run(f"sv up {SERVICE}")
    answers(board)


def is_guarded(board: Machine) -> None:
    status, output = board.attempt("/usr/libexec/zondar-net-receiver/guard-replay sh -c '"
                                   "for line in 1 2 3 4 5 6 7; do echo read: Bad file descriptor >&2; done; "
                                   "exec sleep 1000'")  # fmt: skip
    equal(status, 128 + 15)
    expect("guard-replay: the daemon carries out old requests again: it is ended\n" in output, "is not said")


def logs(board: Machine) -> None:
    """As busybox writes it, and again behind a syslogd that was away."""
    before = pid(board)
    board.run(f"{TRACE}; sv -w 30 restart {SERVICE}")
    another(board, before)
    answers(board)
    zondar(board, "identify")
    logged(board, "CMD: Peticion de identificacion")
    equal(messages(board, "CMD: Peticion de identificacion"),
          [f"cabecera-1 daemon.debug ZONDAR_NET_RECEIVER[{pid(board)}]: CMD: Peticion de identificacion"])
    board.run("kill $(pidof syslogd)")
    until(lambda: not board.run("pidof syslogd", check=False), "syslogd goes on")
    zondar(board, "status")
    until(lambda: "CMD: Peticion" in board.console(), "the console does not have it instead")
    board.run("syslogd -O /var/log/messages")
    zondar(board, "identify")
    logged(board, "CMD: Peticion de identificacion", 2)


def goes_on(board: Machine, switch: str) -> None:
    """Behind a reboot, or when it is switched on again: values and answers are as before."""
    zondar(board, "set", NAME, "Encendido")
    before, first = boot(board), pid(board)
    board.run(switch, check=False)
    if switch == "poweroff":
        board.wait(120)
        board.start()
    else:
        until(lambda: "reboot: Restarting system" in board.console(), "does not go down")
    answers(board)
    expect(boot(board) != before, "was not started anew")
    equal(zondar(board, "get", NAME).split(), [NAME, "Encendido"])
    ended = f"[{first}]: Exiting due to signal Terminated."
    expect(messages(board, ended) != [], "the daemon was not ended in order")
    device = board.run("sed -n 's,/dev/\\(.*\\) /quelt .*,\\1,p' /proc/mounts").strip()
    expect(device.startswith("vd"), device)
    expect(f"EXT4-fs ({device}): recovery complete" not in board.run("dmesg"), "/quelt was not unmounted")


def buildroot_supervises(board: Machine) -> None:
    answers(board)
    first = pid(board)
    board.run(f"kill -9 {first}")
    another(board, first)
    answers(board)
    second = pid(board)  # some may have found the port taken before it
    board.run(f"{SCRIPT} restart")
    another(board, second)
    answers(board)
    third = pid(board)
    logged(board, f"[{second}]: Exiting due to signal Terminated.")
    board.run(f"{SCRIPT} start")
    equal(pid(board), third)
    board.run(f"{SCRIPT} stop")
    equal(pid(board), "")
    equal(board.run("ps | grep '[z]ondar'", check=False), "")
    expect(not board.answers(), "still answers")
    board.run(f"{SCRIPT} start")
    answers(board)


def buildroot_logs(board: Machine) -> None:
    answers(board)
    board.tool("--timeout", "3", "raw", "5")
    board.run("printf '\\245\\4\\0\\0\\0\\0\\375' | nc -w 2 127.0.0.1 8001", check=False)
    logged(board, "Checksum NOK")
    equal(messages(board, "Checksum NOK"),
          ["cabecera-1 daemon.warn zondar_net_receiver: [ERROR]recibir_mensaje_nenlace: "
           "Checksum NOK in message received"])  # fmt: skip
    answers(board)


def buildroot_ends_hanging_scripts(board: Machine) -> None:
    answers(board)
    hangs = "#!/bin/sh\\ntrap \"\" TERM\\nwhile :; do sleep 1; done\\n"
    board.run(f"printf '{hangs}' > /quelt/script/set_interfaces_db.sh")
    board.tool("--yes", "set", "ConfiguracionGen.Ip_Mask", "255.255.0.0")
    until(lambda: board.run("ps | grep '[s]et_interfaces'", check=False), "no script runs")
    board.run(f"{SCRIPT} stop")
    equal(board.run("ps | grep '[s]et_interfaces\\|[z]ondar'", check=False), "")


# A master besides, who asks all the time.
ASKED = (r"""setsid sh -c 'while sleep 4; do printf "\245\0\0\0\0\0\0" | nc 127.0.0.1 8001 & sleep 1;"""
         r""" nc 127.0.0.1 8001; done' > /dev/null 2>&1 < /dev/null &""")  # fmt: skip
KILLS = f"sed -i s/TERM/KILL/ {SERVICE}/control/t"
FORGETS = "sed -i '/^\\(sv\\|.*S80\\|.*sv \\)/d' /etc/init.d/rcK"
ENDS_NOBODY = f"sed -i 's/kill -0/false/' {SCRIPT}"
# Of somebody else, who may not.
SETS_NO_CLOCK = (f"sed -i 's,/usr/sbin/zondar_net_receiver,chpst -u nobody &,' {SERVICE}/run;"
                 f" sv -w 60 restart {SERVICE}; sleep 8")  # fmt: skip

SMALL_CASES = (
    Case("busybox: loads the network anew by the board's script", "busybox", loads_the_network_anew,
         idle(f"{SCRIPTS}/g_ether_reload.sh")),
    Case("busybox: sets the network by the board's script", "busybox", sets_the_network,
         idle(f"{SCRIPTS}/set_interfaces_db.sh")),
    Case("busybox: goes back to the factory by the board's script", "busybox", goes_back_to_the_factory,
         idle(f"{SCRIPTS}/reset_factory_default.sh")),
    Case("busybox: sets the clock", "busybox", sets_the_clock, SETS_NO_CLOCK),
    Case("busybox: starts anew without a master", "busybox", starts_anew_without_a_master, ASKED),
    Case("busybox: ends in order", "busybox", ends_in_order, KILLS),
    Case("busybox: is ended when it carries out old requests again", "busybox", is_guarded,
         "printf '#!/bin/sh\\nexit 143\\n' > /usr/libexec/zondar-net-receiver/guard-replay"),
    Case("busybox: logs", "busybox", logs, "kill $(pidof syslogd)"),
    Case("busybox: reboots", "busybox", lambda board: goes_on(board, "reboot"), FORGETS),
    Case("busybox: is switched off and on", "busybox", lambda board: goes_on(board, "poweroff"), FORGETS),
    Case("busybox, Buildroot: supervises", "busybox", buildroot_supervises, ENDS_NOBODY, BUILDROOT),
    Case("busybox, Buildroot: logs", "busybox", buildroot_logs, "kill $(pidof syslogd)", BUILDROOT),
    Case("busybox, Buildroot: ends hanging scripts", "busybox", buildroot_ends_hanging_scripts, ENDS_NOBODY,
         BUILDROOT),
    Case("busybox, Buildroot: reboots", "busybox",
         lambda board: (answers(board), goes_on(board, "reboot")), FORGETS, BUILDROOT),
)  # fmt: skip
