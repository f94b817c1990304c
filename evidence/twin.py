"""The daemon's twin: what each of some requests answers and writes, worked out by the bare SQL
statements of the record layer on databases of its own. A database that both are given in the same
state, whatever that is, must leave both with the same answers and the same contents.
"""

import contextlib
import ctypes
import ctypes.util
import functools
import json
import pathlib
import re
import sqlite3
from collections.abc import Callable, Iterator
from typing import Any

import lab

NAMES = (lab.CONFIGURATION.name, lab.STATE.name)

# ------------------------------------------------------------------------- SQLite's C interface

_sqlite = ctypes.CDLL(ctypes.util.find_library("sqlite3"))
_Texts = ctypes.POINTER(ctypes.c_char_p)


class Database:
    """Open for its life, as the daemon's are. What is not `readable` or `writable` fails. `executed` is
    called behind each statement that writes."""

    def __init__(self, path: pathlib.Path, executed: Callable[[], None] = lambda: None) -> None:
        self._handle = ctypes.c_void_p()
        self._executed = executed
        self.readable = self.writable = True
        if _sqlite.sqlite3_open(str(path).encode(), ctypes.byref(self._handle)) != 0:
            raise OSError(f"{path} cannot be opened")

    def close(self) -> None:
        _sqlite.sqlite3_close(self._handle)

    def select(self, sql: bytes) -> list[list[bytes | None]]:
        """The rows in text form, each text up to its first NUL; none when the statement fails."""
        texts, rows, width = _Texts(), ctypes.c_int(), ctypes.c_int()
        if self.readable:
            _sqlite.sqlite3_get_table(self._handle, sql, ctypes.byref(texts), ctypes.byref(rows),
                                      ctypes.byref(width), None)  # fmt: skip
        table = [texts[(row + 1) * width.value : (row + 2) * width.value]
                 for row in range(rows.value)]  # fmt: skip
        _sqlite.sqlite3_free_table(texts)
        return table

    def execute(self, sql: bytes) -> None:
        if self.readable and self.writable:
            _sqlite.sqlite3_exec(self._handle, sql, None, None, None)
            self._executed()


def _quoted(text: bytes | None) -> bytes:
    return b"NULL" if text is None else b"'" + text.replace(b"'", b"''") + b"'"


# ------------------------------------------------------------------------------ the sample board


@functools.cache
def columns() -> dict[str, list[str]]:
    """Of each table of the sample board, in their order."""
    found = {}
    for name in NAMES:
        with contextlib.closing(sqlite3.connect(":memory:")) as database:
            script = (lab.ROOT / "board" / name.replace(".sqlite", ".sql")).read_text()
            database.executescript(script)
            tables = database.execute("SELECT name FROM sqlite_schema WHERE type = 'table'")
            for (table,) in tables.fetchall():
                info = database.execute(f"PRAGMA table_info({table})")
                found[table] = [row[1] for row in info]
    return found


STATE_TABLES = ("alarmasEstado", "Bitrate_Nulos")

# The key of a row of a parameter such as EntradaAV.0.Brillo; the other tables have one row.
_KEYS = {
    "EntradaAV": lambda index: f"WHERE IdEntradaAV='{index}'",
    "RFOut": lambda _: "WHERE IdRFOut='1'",
    "ServiciosSalida": lambda index: f"WHERE IdServicio='{index}'",
}
_UNSTORED = ("Red.TSID_Out", "Red.ONID_Out", "time", "date")
# Texts that may fill their field to its last byte.
_BOUNDED = ("Ip_Address", "Ip_Mask", "Ip_Gateway", "IP_address_source", "SAP_Ip")

# Of each country: locale, two letters, three letters, Subtimezone; NID, NIT_Patron, LCN_Mode;
# Modo_OFDM, Intervalo_Guarda; Code_Rate, Canal_Salida, Frecuencia, Ancho_Banda; Bitrate.
_COUNTRIES = {
    b"Australia": (b"en_US", b"au", b"AUS", 6, 1, 1, 5, 1, 1, 2, 38, 599500, 1, 7000),
    b"Italy": (b"it_IT", b"it", b"ITA", 0, 1, 1, 1, 1, 3, 2, 21, 474000, 0, 7000),
    b"France": (b"fr_FR", b"fr", b"FRA", 0, 1, 1, 1, 1, 2, 2, 21, 474000, 0, 8000),
}
_MAC, _SERIAL, _MODEL, _HOST = b"001a2b3c4d5e", b"ZN2024000123", b"ZND2AV-T", b"cabecera-1"
_IP, _SOFTWARE = b"169.254.34.21\n", bytes((2, 4, 1))


def number(text: bytes | None) -> int:
    """As atoi() of a 64-bit C library: what is beyond a long is the nearest one."""
    digits = re.match(rb"[ \t-\r]*([+-]?)0*([0-9]{1,20})", text or b"")
    value = int(digits[1] + digits[2]) if digits else 0
    value = max(-(2**63), min(2**63 - 1, value)) & 0xFFFFFFFF
    return value - 2**32 if value >> 31 else value


def _wire(value: int, width: int) -> bytes:
    return (value % 256**width).to_bytes(width, "big")


class Twin:
    def __init__(self, directory: pathlib.Path, executed: Callable[[], None] = lambda: None) -> None:
        self.configuration, self.state = (Database(directory / name, executed) for name in NAMES)

    def close(self) -> None:
        self.configuration.close()
        self.state.close()

    def answer(self, command: int, info: bytes) -> bytes:
        if command in (0, 2):
            return self._status()
        if command == 1:
            return self._block(2 if info[0] == 2 else 1)
        text = info[1:].split(b"\0")[0]
        match info[0]:
            case 63:
                self._write("IPOut", "", "SAP_Time", info[1])
            case 37:
                self._write("Red", "", "NetworkName", text[:14])
            case 71:
                self._country(text)
            case 109:
                self._encoder_status(info[14:].split(b"\0")[0][:8])
            case 110:
                return self._register(info)
            case _:
                raise ValueError(f"sub-command {info[0]} is not the twin's")
        return b""

    # One row, one column at a time.

    def _database(self, table: str) -> Database:
        return self.state if table in STATE_TABLES else self.configuration

    def _row(self, table: str, clause: str) -> dict[str, bytes | None] | None:
        rows = self._database(table).select(f"SELECT * FROM {table} {clause}".encode())
        if len(rows) != 1:
            return None
        names = columns()[table]
        return dict(zip(names, rows[0] + [None] * len(names)))

    def _column(self, table: str, clause: str, column: str) -> bytes | None:
        row = self._row(table, clause)
        return None if row is None else row[column]

    def _write(self, table: str, clause: str, column: str, value: int | bytes) -> bool:
        row = self._row(table, clause)
        if row is None:
            return False
        text = value if isinstance(value, bytes) else str(value).encode()
        if (row[column] or b"") != text:
            key, key_value = next(iter(row.items()))
            sql = f"UPDATE {table} SET  {column} = %s  WHERE {key} = %s".encode()
            text = text.replace(b"%", b" ", 1)
            self._database(table).execute(sql % (_quoted(text), _quoted(key_value)))
        return True

    # What reads.

    def _block(self, block: int) -> bytes:
        layout = _layouts()[f"configuration_{block}"]
        info = bytearray(layout["length"])
        info[0] = block
        for field in layout["fields"][1:]:
            position, width = field["position"], field["width"]
            info[position : position + width] = self._field(field["name"], width)
        return bytes(info)

    def _field(self, name: str, width: int) -> bytes:
        if name in _UNSTORED:
            return bytes(width)
        table, *index, column = name.split(".")
        if table == "PIDsSalida":
            clause = f"WHERE fk_idServicio='{index[0]}' AND Tipo='{index[1]}'"
            return _wire(number(self._column(table, clause, column)) == 1, width)
        text = self._column(table, _KEYS.get(table, lambda _: "")(*index or [0]), column)
        if width == 15:
            return (text or b"")[: 15 if column in _BOUNDED else 14].ljust(15, b"\0")
        return _wire(number(text) - (column == "Constelacion"), width)

    def _digits(self, name: str) -> bytes:
        text = self._column("alarmasEstado", f"WHERE nombre='{name}'", "valor") or b""
        return text if len(text) <= 8 else b""

    def _binary(self, name: str) -> int:
        value = 0
        for digit in self._digits(name):
            value = value << 1 & 0xFF | (digit != ord("0"))
        return value

    def _hexadecimal(self, name: str) -> int:
        digits = re.sub(rb"[^0-9A-Fa-f]", b"0", self._digits(name))
        return int(digits or b"0", 16)

    def _status(self) -> bytes:
        info = bytearray(28)
        sync = self._binary("estado_entradaAV_sync")
        info[0] = sync & 15
        alarms = ("hw", "in", "cod", "si", "mod", "ip")
        info[1] = sum((self._binary(f"alarma_{name}") & 1) << bit
                      for bit, name in enumerate(alarms))  # fmt: skip
        info[6] = self._binary("estado_sync") & 1
        system = self._hexadecimal("estado_entradaAV_sistemaTV_12")
        hdmi = self._hexadecimal("estado_entradaAV_hdmi")
        hdsdi = self._hexadecimal("estado_entradaAV_hdsdi")
        info[7:15] = (system & 255, system >> 16 & 255, hdmi >> 16 & 255, hdsdi >> 16 & 255,
                      3, 3, hdmi >> 24, hdsdi >> 24)  # fmt: skip
        figures = ("Nivel", "Porcentaje", "Canal_2", "Total", "Canal_1")
        level, percent, second, total, first = (
            number(self._column("Bitrate_Nulos", "", name)) & 0xFFFFFFFF for name in figures
        )
        info[15] = level % 256 if level < 2**31 else 0x80 + -level % 128
        player = self._hexadecimal("estado_player")
        info[16:27] = self._bitrates(player == 1, percent, second, total, first)
        info[27] = player & 255
        return bytes(info)

    def _bitrates(self, playing: bool, percent: int, second: int, total: int, first: int) -> bytes:
        mode = number(self._column("ConfiguracionGen", "", "Modo_Entrada"))
        inputs = 1 if not playing and mode >= 10 else 2
        if number(self._column("ConfiguracionGen", "", "Modo_Salida")) == 0:
            nulls = (total >> 1) * percent % 2**32 // 100
            net = (total - nulls * inputs) * 188 % 2**32 // 204000
            return bytes((first >> 1 & 255, total >> 1 & 255, second >> 1 & 255)) + _wire(
                net, 2) + bytes(6)  # fmt: skip
        ip = self._hexadecimal("estado_bitrate_IP_0")
        other = self._hexadecimal("estado_bitrate_IP_1")
        if inputs == 1:
            return bytes(5) + _wire(ip, 2) * 2 + bytes(2)
        other = 6000 if playing else other
        return bytes(5) + _wire(ip + other, 2) + _wire(ip, 2) + _wire(other, 2)

    # What writes.

    def carry(self, name: str, value: int | str) -> None:
        """A parameter to a value, by its own sub-command."""
        table, *index, column = name.split(".")
        text = value if isinstance(value, int) else value.encode("latin-1")
        if name == "ConfiguracionGen.Country":
            self._country(str(value).encode())
        else:
            self._write(table, _KEYS.get(table, lambda _: "")(*index or [0]), column, text)

    def _country(self, name: bytes) -> None:
        before = (self._column("ConfiguracionGen", "", "Country") or b"")[:14]
        if before == name:
            return
        (locale, two, three, zone, nid, pattern, lcn, ofdm, guard, rate, channel, frequency, width,
         bitrate) = _COUNTRIES[name]  # fmt: skip
        general = (("Country", name), ("Language", locale), ("Subtimezone", zone),
                   ("Idtimezone", two), ("Codtimezone", three))  # fmt: skip
        for column, value in general:
            self._write("ConfiguracionGen", "", column, value)
        for column, value in (("NID", nid), ("NIT_Patron", pattern), ("LCN_Mode", lcn)):
            self._write("Red", "", column, value)
        output = [("Modo_OFDM", ofdm), ("Intervalo_Guarda", guard)]
        if b"Australia" in (before[:9], name):
            output += [("Code_Rate", rate), ("Canal_Salida", channel), ("Frecuencia", frequency),
                       ("Ancho_Banda", width)]  # fmt: skip
        for column, value in output:
            self._write("RFOut", _KEYS["RFOut"](0), column, value)
        few = number(self._column("ConfiguracionGen", "", "Modo_Entrada")) < 3
        for channel in (0, 1) if few else (0,):
            self._write("EntradaAV", _KEYS["EntradaAV"](channel), "Bitrate",
                        bitrate if few else 15000)  # fmt: skip

    def _encoder_status(self, text: bytes) -> None:
        """Of a master that has a slave, and another text than the one that is there."""
        self.state.execute(b"UPDATE alarmasEstado SET valor = %s, EstadoPendienteRE = 2"
                           b" WHERE nombre = 'estado_remote_encoder'" % _quoted(text))  # fmt: skip

    def _register(self, info: bytes) -> bytes:
        def text(position: int, size: int) -> bytes:
            return info[position:].split(b"\0")[0][: size - 1]

        names = columns()["EsclavosModulo"]
        if not self.configuration.select(b"SELECT * FROM EsclavosModulo "):
            values = [None, text(1, 13)] + [None] * (len(names) - 2)
            sql = f"INSERT INTO EsclavosModulo ({', '.join(names)})  VALUES (".encode()
            self.configuration.execute(sql + b", ".join(map(_quoted, values)) + b" )")
        version = ".".join(map(str, info[71:74])).encode()[:7]
        values = [text(1, 13), text(14, 18), text(32, 13), text(45, 10), text(55, 16), version,
                  1, 0, 0, 0]  # fmt: skip
        written = [self._write("EsclavosModulo", "WHERE IdEsclavosModulo='1'", column, value)
                   for column, value in zip(names[1:], values)]  # fmt: skip
        fields = ((info[:1], 1), (_MAC, 13), (_HOST, 18), (_SERIAL, 13), (_MODEL, 10), (_IP, 16))
        own = b"".join(value.ljust(width, b"\0") for value, width in fields)
        return own + _SOFTWARE + bytes([not all(written)])


@functools.cache
def _layouts() -> dict[str, Any]:
    return json.loads((lab.ROOT / "docs/commands.json").read_text())["layouts"]


# ---------------------------------------------------------------------------- requests, contents


READS = ((2, b""), (1, b"\x01"), (1, b"\x02"))


def requests(turn: int) -> Iterator[tuple[int, bytes]]:
    """Both reads, each kind of write, and reads of what was written; other values each turn."""
    slave = b"".join(text.ljust(width, b"\0") for text, width in (
        (b"0011223344%02d" % turn, 13), (b"encoder-%d" % turn, 18), (b"SN%d" % turn, 13),
        (b"ZND1", 10), (b"169.254.34.3%d" % turn, 16)))  # fmt: skip
    country = (b"Australia", b"Italy", b"France")[turn % 3]
    yield 2, b""
    yield 1, b"\x01"
    yield 1, b"\x02"
    yield 3, bytes((63, 100 + turn))
    yield 3, b"\x25" + b"%n%s%Q%%" + b"%d\0" % turn
    yield 3, b"\x47" + country + b"\0"
    yield 3, b"\x6e" + slave + bytes((1, 2, turn))
    yield 1, b"\x01"
    yield 1, b"\x02"


def comparable(info: bytes) -> bytes:
    """Without the clock of block 2."""
    return info[:168] + bytes(15) + info[183:] if len(info) == 185 else info


# The second is what Python says of names and messages that are no UTF-8.
_UNREADABLE = (sqlite3.Error, UnicodeDecodeError)


def cells(directory: pathlib.Path) -> dict[tuple[str, Any, str], Any]:
    """Every cell that can be read: table, row id, column to its value. The names in small letters,
    since SQLite takes them in any."""
    found = {}
    for name in NAMES:
        with contextlib.closing(sqlite3.connect(directory / name, timeout=30)) as database:
            database.text_factory = bytes
            for table in _tables(database):
                found.update(_cells_of(database, table.decode("latin-1")))
    return found


def _tables(database: sqlite3.Connection) -> list[bytes]:
    try:
        return [row[0] for row in database.execute(
            "SELECT name FROM sqlite_schema WHERE type = 'table'") if row[0]]  # fmt: skip
    except _UNREADABLE:
        return []


def _cells_of(database: sqlite3.Connection, table: str) -> Iterator[tuple[Any, Any]]:
    with contextlib.suppress(*_UNREADABLE):
        cursor = database.execute(f'SELECT rowid, * FROM "{table}"')
        names = [column[0].lower() for column in cursor.description[1:]]
        for key, *values in cursor:
            yield from (((table.lower(), key, name), value) for name, value in zip(names, values))


def sound(path: pathlib.Path) -> bool:
    """Whether SQLite finds nothing wrong with a database."""
    try:
        return lab.rows(path, "PRAGMA integrity_check") == [("ok",)]
    except _UNREADABLE:
        return False
