"""Writes TCP segments as a capture file. It knows nothing of packets: their bytes come from the tests."""

import dataclasses
import struct

RAW_IP = 101  # link type: each record begins with its IPv4 header
SERVER_PORT = 41265
ADDRESSES = {"C": bytes([192, 0, 2, 1]), "S": bytes([192, 0, 2, 2])}
FIRST_SEQUENCE = 1000
ACK_PUSH = 0x18


@dataclasses.dataclass
class Segment:
    """What one side (C: client, S: server) sent at once. Of the data `kept_bytes` are captured, all by default; nothing at
    all when the segment is `lost` to the capture. Data that is sent `again` is that of the side's segment before."""
    sender: str
    data: bytes
    client_port: int = 50000
    server_port: int = SERVER_PORT
    kept_bytes: int | None = None
    lost: bool = False
    again: bool = False


def _headers(segment, sequence, acknowledged):
    ports = [segment.client_port, segment.server_port]
    addresses = [ADDRESSES["C"], ADDRESSES["S"]]
    if segment.sender == "S":
        ports.reverse()
        addresses.reverse()
    tcp = struct.pack(">HHIIBBHHH", *ports, sequence, acknowledged, 5 << 4, ACK_PUSH, 65535, 0, 0)
    ip = struct.pack(">BBHHHBBH4s4s", 0x45, 0, 40 + len(segment.data), 0, 0x4000, 64, 6, 0, *addresses)
    return ip + tcp


def pcap(segments):
    """The bytes of a capture file with one record for each segment, a millisecond apart; one stream a client port."""
    out = [struct.pack("<IHHiIII", 0xA1B2C3D4, 2, 4, 0, 0, 65535, RAW_IP)]
    sent = {}
    for number, segment in enumerate(segments):
        mine, other = ((segment.client_port, side) for side in (segment.sender, "SC"["SC".index(segment.sender) - 1]))
        sequence = sent.get(mine, FIRST_SEQUENCE) - (len(segment.data) if segment.again else 0)
        record = _headers(segment, sequence, sent.get(other, FIRST_SEQUENCE)) + segment.data
        sent[mine] = sequence + len(segment.data)
        if segment.lost:
            continue
        kept = len(record) if segment.kept_bytes is None else 40 + segment.kept_bytes
        out += [struct.pack("<IIII", number // 1000, number % 1000 * 1000, kept, len(record)), record[:kept]]
    return b"".join(out)
