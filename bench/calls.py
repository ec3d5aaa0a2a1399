"""Reads what callwatch noted of a program's calls."""
import collections
import pathlib
import struct

import rig
from rig import BIN, OUT

EVENT = struct.Struct("<QQIIqQ")
LOADED, IOCTL, WRITE, SEND, RECEIVE = 0, 1, 2, 3, 4
DQBUF, PAN, BLANK, QUEUE_TASK = 0xC0585611, 0x4606, 0x4611, 0xC0884902  # as on a PC
Event = collections.namedtuple("Event", "end frame kind request result argument")
BYTES = 8 + (1 << 20) * EVENT.size


def watched(name):
    """The file to note in, and the daemon with the watch in it as a command."""
    log = OUT / f"{name}.calls"
    with open(log, "wb") as file:
        file.truncate(BYTES)
    return log, ("under", "first", BIN / "libcallwatch.so", log, BIN / "velcamd")


def read(log):
    data = pathlib.Path(log).read_bytes()
    used = min(struct.unpack_from("<Q", data)[0], (len(data) - 8) // EVENT.size)
    return [Event(*EVENT.unpack_from(data, 8 + index * EVENT.size)) for index in range(used)]


def is_ioctl(event, request):
    return event.kind == IOCTL and event.request == request
