"""What a disk holds when its power is gone: replays the log of its writes and flushes that qemu's
blklogwrites made, in the format of Linux's dm-log-writes.

A disk with a cache has whatever came before the last flush, and of what came since it any writes, in
any order, the last sectors of a write perhaps without the first. A disk without one has all up to the
cut, the last write perhaps up to one of its sectors.

A real disk may be worse: the log has a write when it was carried out, so that one which ended during a
flush counts as flushed; of a disk without a cache several writes may be under way, here one is; and of
two writes to one place the later one counts.
"""

import pathlib
import random
import struct
from collections.abc import Iterator
from dataclasses import dataclass

_MAGIC = 0x6A736677736872
_SECTOR = 512
_FLUSH, _FUA, _DISCARD = 1, 2, 4


@dataclass(frozen=True)
class Entry:
    """`end` is the size that the log had when this was its last entry."""

    offset: int
    data: bytes
    flush: bool
    fua: bool
    end: int


def entries(path: pathlib.Path) -> list[Entry]:
    """The complete ones, whatever the log's head says: that is written now and then only."""
    log = path.read_bytes()
    magic, version, _, sector = struct.unpack_from("<QQQI", log)
    if magic != _MAGIC or version != 1:
        raise ValueError(f"{path} is no log of writes")
    found, at = [], sector
    while at + sector <= len(log):
        start, count, flags = struct.unpack_from("<QQQ", log, at)
        at += sector
        # A discarded block may hold what it held.
        size = 0 if flags & _DISCARD else count * sector
        if at + size > len(log):
            break
        found.append(Entry(start * sector, log[at : at + size], bool(flags & _FLUSH),
                           bool(flags & _FUA), at + size))  # fmt: skip
        at += size
    return found


# A part of a write: where, and what.
Part = tuple[int, bytes]


def _torn(entry: Entry, chance: random.Random) -> Iterator[Part]:
    for at in range(0, len(entry.data), _SECTOR):
        if chance.random() < 0.5:
            yield entry.offset + at, entry.data[at : at + _SECTOR]


class Disk:
    """A disk at one cut after the other, none before the last one. With `cache` None it has none; 0 is
    one that keeps what was not flushed, another number one that is never flushed and keeps so many
    writes."""

    def __init__(self, base: bytes, log: list[Entry], cache: int | None) -> None:
        self._settled = bytearray(base)
        self._log, self._cache = log, cache
        self._next = 0  # entry that is not settled yet
        self._kept: list[Part] = []

    def _settle(self, end: int) -> None:
        for entry in self._log[self._next : end]:
            self._settled[entry.offset : entry.offset + len(entry.data)] = entry.data
        self._next = max(self._next, end)

    def cut(self, end: int, chance: random.Random) -> tuple[int, tuple[Part, ...]]:
        """Cuts behind the first `end` entries, and returns what tells equal contents."""
        if self._cache is None:
            self._kept = self._cut_in_order(end, chance)
        else:
            self._kept = self._cut_with_cache(end, chance)
        return self._next, tuple(self._kept)

    def end(self) -> None:
        """Without a cut: it holds all that was written."""
        self._settle(len(self._log))
        self._kept = []

    def write(self, path: pathlib.Path) -> None:
        """What it holds behind the last cut."""
        with path.open("wb") as image:
            image.write(self._settled)
            for at, data in self._kept:
                image.seek(at)
                image.write(data)

    def _cut_in_order(self, end: int, chance: random.Random) -> list[Part]:
        self._settle(end - 1)
        last = self._log[end - 1]
        size = len(last.data)
        if size and chance.random() < 0.5:
            size = chance.randrange(0, size, _SECTOR)
        return [(last.offset, last.data[:size])]

    def _cut_with_cache(self, end: int, chance: random.Random) -> list[Part]:
        if self._cache:
            self._settle(max(0, end - self._cache))
        else:
            flushes = [k for k in range(self._next, end) if self._log[k].flush]
            self._settle(flushes[-1] if flushes else 0)
        kept: list[Part] = []
        reached = chance.choice((0.0, 0.5, 0.5, 0.9, 1.0))
        for entry in self._log[self._next : end]:
            if entry.fua or chance.random() < reached:
                kept.append((entry.offset, entry.data))
            elif reached and chance.random() < 0.2:
                kept.extend(_torn(entry, chance))
        return kept
