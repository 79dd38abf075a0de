"""The files of a store as somebody reads and writes them who knows their form (Storage/Record.h)."""

import dataclasses
import pathlib
import struct
import zlib

HEADER = struct.Struct("<4sIIIQQ16sII")
MAGIC = b"\x8bKit"
HEAD, VALUE, VALUE_REMOVED, LIST_BEGUN, LIST_ENDED, ROW, ROWS_REMOVED, EDIT_END, ROW_INDEX, LIST_NOTE = range(1, 11)


@dataclasses.dataclass(frozen=True)
class Record:
    kind: int
    edit: int = 0
    list: int = 0
    ordinal: int = 0
    tag: bytes = bytes(16)
    payload: bytes = b""
    begin: int = 0  # in the file

    @property
    def end(self) -> int:
        return self.begin + HEADER.size + len(self.payload)

    def bytes(self, seed: int) -> bytes:
        begin = HEADER.pack(MAGIC, self.kind, self.list, len(self.payload), self.edit, self.ordinal,
                            self.tag, zlib.crc32(self.payload, seed), 0)[:-4]
        once = begin + struct.pack("<I", zlib.crc32(begin, seed)) + self.payload
        return once if self.kind in (ROW, ROW_INDEX) else 2 * once


def seed_for(store: int) -> int:
    return zlib.crc32(store.to_bytes(8, "little"))


def records_of(file, may_be_cut=False) -> list[Record]:
    """Of a file without damage; those that are written twice are there twice. A kill within the call that writes a record may
    leave it cut short at the end: where that may be, it is left out."""
    data, found, at = pathlib.Path(file).read_bytes(), [], 0
    while at < len(data):
        if may_be_cut and len(data) - at < HEADER.size:
            break
        magic, kind, list_, length, edit, ordinal, tag, *_ = HEADER.unpack_from(data, at)
        if magic != MAGIC:
            raise ValueError(f"{file} has no record at {at}")
        record = Record(kind, edit, list_, ordinal, tag, data[at + HEADER.size:at + HEADER.size + length], at)
        at += HEADER.size + length
        if at <= len(data):
            found.append(record)
        elif not may_be_cut:
            raise ValueError(f"{file} ends within the record at {record.begin}")
    return found


def store_of(file) -> int:
    """The identity of the store that a file belongs to."""
    return int.from_bytes(records_of(file)[0].payload, "little")


def key_of(record: Record) -> str | None:
    """Of a value."""
    if record.kind != VALUE:
        return None
    (size,) = struct.unpack_from("<I", record.payload, 1)
    return record.payload[5:5 + size].decode()


def values_of(file) -> dict[str, tuple[int, bytes]]:
    """Kind and bytes of the values of a sound values.log."""
    values = {}
    for record in records_of(file):
        if record.kind == VALUE:
            key = key_of(record)
            values[key] = (record.payload[0], record.payload[5 + len(key.encode()):])
        elif record.kind == VALUE_REMOVED:
            values.pop(record.payload.decode(), None)
    return values


def write_values(file, values: dict[str, tuple[int, bytes]]) -> None:
    """Makes a values.log anew that holds these; its store and its changes so far stay known."""
    earlier = records_of(file)
    store, last = store_of(file), max(record.edit for record in earlier)
    out = Record(HEAD, last, payload=store.to_bytes(8, "little")).bytes(0)
    for number, (key, (kind, data)) in enumerate(values.items(), last + 1):
        name = key.encode()
        payload = struct.pack("<BI", kind, len(name)) + name + data
        out += Record(VALUE, number, payload=payload).bytes(seed_for(store))
    pathlib.Path(file).write_bytes(out)
