"""Frames, and captures of conversations: the bytes of packets, written without the code of the project."""

import struct

START = 0xA5
FIN, SYN, RST, PUSH, ACK = 0x01, 0x02, 0x04, 0x08, 0x10
# Link types, and what each puts before an IPv4 header.
RAW, ETHERNET, COOKED, COOKED_2, TRACE = 101, 1, 113, 276, 147
BEFORE_IP = {
    RAW: b"",
    ETHERNET: bytes(12) + b"\x08\x00",
    COOKED: bytes(14) + b"\x08\x00",
    COOKED_2: b"\x08\x00" + bytes(18),
}
VLAN_TAG = b"\x81\x00\x00\x64\x08\x00"


def crc8(data):
    """x^8 + x^5 + x^4 + 1, the lowest bit first, from 0."""
    crc = 0
    for byte in data:
        crc ^= byte
        for _ in range(8):
            crc = crc >> 1 ^ (0x8C if crc & 1 else 0)
    return crc


def _scrambled(info):
    return bytes(byte ^ 0x55 for byte in info)


def parts(command, info=b"", crc8_mode=False, sequence=0, header=bytes(3), wrong_checksum=0, wrong_crc=0):
    """Of a frame without doubled bytes: what stands before the info, that with the info as sent, and the codes.
    What is wrong with a code is added to it."""
    head = bytes([START, command | sequence << 4 | crc8_mode << 7]) + header + bytes([len(info)])
    sent = head + (_scrambled(info) if crc8_mode else info)
    codes = [-sum(sent[1:]) + wrong_checksum & 0xFF, crc8(sent[1:]) + wrong_crc & 0xFF]
    return head, sent, bytes(codes[: 1 + crc8_mode])


def frame(command, info=b"", **more):
    """As it goes over the wire."""
    _, sent, codes = parts(command, info, **more)
    return sent[:2] + (sent[2:] + codes).replace(b"\xa5", b"\xa5\xa5")


def traced(direction, command, info=b"", start=START, **more):
    """A record of a trace file: the info in clear, the codes of the wire, and a byte behind the checksum always.
    In a frame of another sequence number the info stays as on the wire."""
    head, sent, codes = parts(command, info, **more)
    shown = sent if more.get("sequence") else head + info
    return bytes([direction, start]) + shown[1:] + codes.ljust(2, b"\0")


class Connection:
    """Between a master and a module. Each call is a packet, and gives its number."""

    def __init__(self, capture, master, port, module):
        self.capture = capture
        self.ends = (master, port), module
        self.next = [1000, 5000]  # sequence numbers of the master and of the module

    def packet(self, by_module, flags, payload=b"", at=None):
        """`at` is the place of the payload behind the SYN, for what is sent again or out of order."""
        source, destination = self.ends[by_module], self.ends[not by_module]
        sequence = self.next[by_module] if at is None else (1001, 5001)[by_module] + at
        if at is None:
            self.next[by_module] += len(payload) + (flags & (SYN | FIN) != 0)
        acknowledged = self.next[not by_module] if flags & ACK else 0
        tcp = struct.pack(">HHIIBBHHH", source[1], destination[1], sequence & 0xFFFFFFFF, acknowledged, 0x50, flags,
                          8192, 0, 0) + payload
        ip = struct.pack(">BBHHHBBH", 0x45, 0, 20 + len(tcp), 0, 0x4000, 64, 6, 0)
        return self.capture.add_ip(ip + _address(source[0]) + _address(destination[0]) + tcp)

    def syn(self):
        return self.packet(False, SYN)

    def accepted(self):
        return self.packet(True, SYN | ACK)

    def opened(self):
        self.syn()
        self.accepted()
        return self

    def request(self, *segments):
        return [self.packet(False, PUSH | ACK, segment) for segment in segments][-1]

    def answer(self, *segments):
        return [self.packet(True, PUSH | ACK, segment) for segment in segments][-1]

    def master_ends(self, flags=FIN):
        return self.packet(False, flags | ACK)

    def module_ends(self, flags=FIN):
        return self.packet(True, flags | ACK)


class Capture:
    """Packets, a millisecond after one another."""

    def __init__(self, link=RAW, vlan=False, master="10.0.0.1", module=("10.0.0.9", 8001)):
        self.link = link
        self.master, self.module = master, module
        self.packets = []
        self.before_ip = BEFORE_IP.get(link, b"")
        if vlan:
            self.before_ip = self.before_ip[:-2] + VLAN_TAG
        self.port = 40000

    def add(self, data):
        self.packets.append(data)
        return len(self.packets)

    def add_ip(self, ip):
        return self.add(self.before_ip + ip)

    def connection(self, master=None, module=None, port=None):
        self.port += 1
        return Connection(self, master or self.master, port or self.port, module or self.module)

    def ask(self, *segments, **ends):
        """A connection with requests, up to the master's end."""
        connection = self.connection(**ends).opened()
        connection.request(*segments)
        connection.master_ends()
        return connection

    def collect(self, *segments, **ends):
        """A connection with an answer, up to its end."""
        connection = self.connection(**ends).opened()
        connection.answer(*segments)
        connection.module_ends()
        connection.master_ends(RST)

    def empty(self, times=1):
        """Connections that give nothing, four packets each."""
        for _ in range(times):
            connection = self.connection().opened()
            connection.master_ends()
            connection.module_ends()

    def exchange(self, request, answer, **ends):
        """Ten packets: the request is in the third, the answer in the seventh. The module reads on from the
        request's connection, and finds its end, when it has answered."""
        asked = self.ask(request, **ends)
        self.collect(answer, **ends)
        asked.module_ends()

    def write(self, path):
        with open(path, "wb") as file:
            file.write(to_pcap(self.link, self.packets))


def to_pcap(link, packets, moments=None, cut=None):
    """A file of packets with their moments in seconds, a millisecond after one another by default; of those whose
    numbers `cut` has, so many bytes alone."""
    parts = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 262144, link)]
    for number, packet in enumerate(packets):
        microseconds = int(moments[number] * 1_000_000) if moments else (1_700_000_000_000 + number) * 1000
        kept = packet[:(cut or {}).get(number)]
        parts += [struct.pack("<IIII", *divmod(microseconds, 1_000_000), len(kept), len(packet)), kept]
    return b"".join(parts)


def _address(text):
    return bytes(int(part) for part in text.split("."))
