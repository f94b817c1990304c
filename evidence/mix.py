"""All kinds of requests at random, and what must be answered: the load of the evidence scripts."""

import json
import random

import lab

STATUS, CONFIGURATION, STATUS_AGAIN, WRITE, IDENTIFICATION = range(5)
CLOCK = slice(168, 183)  # in block 2
CATALOGUE = json.loads((lab.ROOT / "docs/commands.json").read_text())
LENGTHS = {name: layout["length"] for name, layout in CATALOGUE["layouts"].items()}
REFUSED = bytes(LENGTHS["refusal"])
MAC = b"0a1b2c3d4e5f\0"
REGISTRATION = (
    MAC + b"encoder-1".ljust(18, b"\0") + b"SL2024000077\0" + b"RE100".ljust(10, b"\0")
    + b"169.254.34.50".ljust(16, b"\0") + bytes([1, 2, 3])
)  # fmt: skip

# They change more than the value they send, or store another one: the blocks are read anew.
SIDE_EFFECTS = {row["sub_command"] for row in CATALOGUE["sub_commands"]
                if {"also_writes", "stored", "stored_as"} & set(row)}  # fmt: skip

# Sub-commands that are no plain parameters: the value, the length of the answer, how it begins.
ACTIONS = {
    72: (b"09.05", b""),
    73: (b"03.02.2024", b""),
    80: (b"\0", b""),
    105: (MAC + b"\1", b"\x69\1"),
    106: (MAC + b"\1", b"\x6a\1"),
    107: (b"\1", b""),
    108: (b"\1", b""),
    109: (MAC + b"00000001\0", b"\x6d\0"),
    110: (REGISTRATION, b"\x6e001a2b3c4d5e\0cabecera-1"),
    111: (MAC, b"\x6f"),
    112: (MAC + b"\2", b""),
}
ACTION_LENGTHS = {row["sub_command"]: LENGTHS[row["answers"][0]]
                  for row in CATALOGUE["sub_commands"] if row.get("answers")}  # fmt: skip


class Master:
    """Asks at random and knows what must be answered."""

    def __init__(self, seed: int) -> None:
        self.random = random.Random(seed)
        self.rows = [row for row in CATALOGUE["sub_commands"] if row["kind"] != "action"]
        self.known: dict[object, bytes] = {}  # the answers as they must be by now
        self.kinds = [self.status, self.block, self.identify, self.parameter, self.parameter,
                      self.parameter, self.action, self.refused, self.unanswered]  # fmt: skip

    def step(self) -> None:
        self.random.choice(self.kinds)()

    def same_as_before(self, key: object, answer: bytes, length: int) -> None:
        if len(answer) != length or answer != self.known.setdefault(key, answer):
            raise ValueError(f"{key}: {answer.hex()} instead of {self.known[key].hex()}")

    def status(self) -> None:
        answer = lab.ask(self.random.choice((STATUS, STATUS_AGAIN)))
        self.same_as_before("status", answer, LENGTHS["status"])

    def identify(self) -> None:
        answer = lab.ask(IDENTIFICATION, self.random.randbytes(self.random.randrange(4)))
        self.same_as_before("identification", answer, LENGTHS["identification"])

    def block(self) -> None:
        number = self.random.choice((1, 2))
        answer = lab.ask(CONFIGURATION, bytes([number]))
        if number == 2:
            answer = answer[: CLOCK.start] + bytes(15) + answer[CLOCK.stop :]
        self.same_as_before(number, answer, LENGTHS[f"configuration_{number}"])

    def write(self, sub_command: int, value: bytes, expected: bytes, length: int = 0) -> None:
        answer = lab.ask(WRITE, bytes([sub_command]) + value)
        if len(answer) != length or not answer.startswith(expected):
            raise ValueError(f"sub-command {sub_command} {value.hex()}: {answer.hex()}")

    def parameter(self) -> None:
        row = self.random.choice(self.rows)
        code = row["sub_command"]
        if "width" in row:
            stored = value = self.random.randbytes(row["width"])
        else:
            length = self.random.randint(1, row["length"])
            text = bytes(self.random.choices(b"Canal 0123.", k=length))
            value, stored = text + b"\0", text.ljust(15, b"\0")
        self.write(code, value, b"")
        if code in SIDE_EFFECTS:
            self.known.clear()
        elif row["block"] in self.known:
            at, block = row["position"], self.known[row["block"]]
            self.known[row["block"]] = block[:at] + stored + block[at + len(stored) :]

    def action(self) -> None:
        code = self.random.choice(list(ACTIONS))
        value, expected = ACTIONS[code]
        self.write(code, value, expected, ACTION_LENGTHS.get(code, 0))
        if code == 80:
            self.known.clear()

    def refused(self) -> None:
        info = self.random.choice((b"", b"\2", b"\x36\1", b"\x3a\1", b"\0\1", b"\xff\1\2\3"))
        answer = lab.ask(WRITE, info)
        if answer != REFUSED:
            raise ValueError(f"not refused: {info.hex()}")

    def unanswered(self) -> None:
        wrong = bytearray(lab.frame(self.random.randint(5, 15), self.random.randbytes(8)))
        if self.random.random() < 0.5:
            wrong = bytearray(lab.frame(STATUS))
            wrong[-1] ^= 1
        lab.send(bytes(wrong))
