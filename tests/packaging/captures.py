"""Captures, byte by byte: why each is there, and its segments. C is the client, S the server; a number behind the letter
tells how many bytes of the segment the capture kept. What tshark makes of them stands in captures/NAME.txt. Called as a
program it writes each as NAME.pcap into the folder that it is given, to be opened with Wireshark."""

import pathlib
import sys

from pcap import Segment, pcap

FIRST_CLIENT_PORT = 50000

REQUEST = "00 00 00 08 03 E9 00 08"
RESET = "00 00 00 08 03 EA 00 08"
UPLOAD = "00 00 00 1A 03 EC 00 08 01 2A 39 30 00 00 2F 74 6D 70 2F 66 77 2E 68 65 78 00"
IDLE = "00 00 00 10 03 E8 00 08 00 01 00 FE FF FF FF FF"
PROGRAMMING = "00 00 00 10 03 E8 00 08 01 05 32 2A 39 30 00 00"
INFO = ("00 00 00 24 00 02 00 08 2C 03 00 00 07 63 6F 72 76 61 6E 65 03 31 2E 30"
        " 0B 63 6F 72 76 61 6E 65 20 31 2E 30")

CAPTURES = {
    "whole-upload": ("the dialogue of a good run, one packet a segment", [
        f"S {INFO}",
        f"C {REQUEST}",
        f"S {IDLE}",
        f"C {RESET}",
        f"C {UPLOAD}",
        "S 00 00 00 10 03 E8 00 08 01 02 00 2A 39 30 00 00",
        "S 00 00 00 10 03 E8 00 08 01 03 00 2A 39 30 00 00",
        "S 00 00 00 10 03 E8 00 08 01 04 00 2A 39 30 00 00",
        f"C {REQUEST}",
        f"S {PROGRAMMING}",
        "S 00 00 00 10 03 E8 00 08 01 06 64 2A 39 30 00 00",
    ]),
    "joined": ("several packets in one segment", [
        f"C {RESET} {UPLOAD}",
        f"S {INFO} {IDLE} {PROGRAMMING}",
    ]),
    "split": ("a packet in three segments, the first of which ends within the length", [
        "C 00 00",
        "C 00 1A 03 EC 00 08 01 2A 39 30 00",
        "C 00 2F 74 6D 70 2F 66 77 2E 68 65 78 00",
    ]),
    "split-and-joined": ("two packets and a half, then the rest and one more, with an answer in between", [
        f"C {REQUEST} {RESET} 00 00 00 1A 03 EC 00 08 01 2A 39 30",
        f"S {IDLE}",
        f"C 00 00 2F 74 6D 70 2F 66 77 2E 68 65 78 00 {REQUEST}",
    ]),
    "ping": ("a request, and answers whose payload nobody looks at", [
        "C 00 00 00 09 00 01 00 08 00",
        "S 00 00 00 08 00 01 00 08",
        "S 00 00 00 09 00 01 00 08 00",
        "S 00 00 00 0B 00 01 00 08 07 08 09",
    ]),
    "byte": ("the first, an ordinary and the last value", [
        "C 00 00 00 09 03 EB 00 08 00",
        "C 00 00 00 09 03 EB 00 08 5A",
        "C 00 00 00 09 03 EB 00 08 FF",
    ]),
    "modes": ("every mode and the first that is none, in reports and requests", [
        "S 00 00 00 10 03 E8 00 08 00 01 00 01 01 00 00 00",
        "S 00 00 00 10 03 E8 00 08 01 01 00 01 01 00 00 00",
        "S 00 00 00 10 03 E8 00 08 02 01 00 01 01 00 00 00",
        "S 00 00 00 10 03 E8 00 08 03 01 00 01 01 00 00 00",
        "S 00 00 00 10 03 E8 00 08 04 01 00 01 01 00 00 00",
        "C 00 00 00 10 03 EC 00 08 03 01 01 00 00 00 2F 00",
        "C 00 00 00 10 03 EC 00 08 FF 01 01 00 00 00 2F 00",
    ]),
    "states": ("every state, and the values around them that are none", [
        f"S 00 00 00 10 03 E8 00 08 00 {state:02X} 00 01 01 00 00 00"
        for state in (0, 1, 2, 3, 4, 5, 6, 7, 99, 100, 101, 102, 103, 104, 105, 106, 255)
    ]),
    "byte-orders": ("the high byte first in the header, the low byte first in payloads", [
        "S 00 00 00 10 03 E8 00 08 00 01 00 01 04 03 02 01",
        "C 00 00 00 10 03 EC 00 08 00 01 04 03 02 01 2F 00",
        "S 00 00 00 0C 00 02 00 08 04 03 02 01",
        "S 00 00 01 08 03 E8 00 08 00 01 00 01 04 03 02 01" + " 00" * 248,
    ]),
    "serial-not-known": ("0x1FFFFFFF and above in a report; a request has no such number", [
        "S 00 00 00 10 03 E8 00 08 00 01 00 01 FE FF FF 1F",
        "S 00 00 00 10 03 E8 00 08 00 01 00 01 FF FF FF 1F",
        "S 00 00 00 10 03 E8 00 08 00 01 00 01 FF FF FF FF",
        "C 00 00 00 10 03 EC 00 08 00 01 FF FF FF FF 2F 00",
    ]),
    "extra-header": ("a payload that starts later than the header ends", [
        "S 00 00 00 14 03 E8 00 0C EE EE EE EE 01 05 32 2A 39 30 00 00",
        "C 00 00 00 0A 03 E9 00 0A EE EE",
    ]),
    "paths": ("what a path may be made of: other alphabets, bytes of none, control characters", [
        "C 00 00 00 14 03 EC 00 08 00 01 01 00 00 00 2F 66 C3 BC 72 00",
        "C 00 00 00 12 03 EC 00 08 00 01 01 00 00 00 2F E4 78 00",
        "C 00 00 00 13 03 EC 00 08 00 01 01 00 00 00 2F 0A 1B 78 00",
    ]),
    "connection-info-ends-early": ("a payload may end behind the process id and behind any text", [
        "S 00 00 00 0C 00 02 00 08 39 30 00 00",
        "S 00 00 00 0E 00 02 00 08 39 30 00 00 01 61",
        "S 00 00 00 10 00 02 00 08 39 30 00 00 01 61 01 62",
        "S 00 00 00 0F 00 02 00 08 39 30 00 00 00 00 00",
    ]),
    "connection-info-cut": ("a text that is longer than what is left, and a process id that is not whole", [
        "S 00 00 00 0E 00 02 00 08 39 30 00 00 02 61",
        "S 00 00 00 10 00 02 00 08 39 30 00 00 01 61 FF 62",
        "S 00 00 00 12 00 02 00 08 39 30 00 00 01 61 01 62 02 63",
        "S 00 00 00 0B 00 02 00 08 39 30 00",
    ]),
    "length-below-8": ("from 0 to 7; what follows in the segment is lost, the next segment is read", [
        "S 00 00 00 07 03 E8 00",
        f"S 00 00 00 00 {IDLE}",
        f"S {IDLE} 00 00 00 04 03 E9",
        "S 00 00 00 03",
        f"S {IDLE}",
    ]),
    "begins-within-a-packet": ("nobody waits for what looks like a length, but is followed by no header", [
        "C 00 00 2F 74 6D 70 2F 66 77 2E 68 65 78 00",
        f"C {REQUEST}",
        "S 32 2A 39 30 00 00",
        f"S {IDLE}",
    ]),
    "unknown-command-split": ("is waited for, and so is a payload that starts elsewhere", [
        "S 00 00 00 0B 03 ED 00 08 01",
        "S 02 03",
        "S 00 00 00 13 03 E8 00 0A EE",
        "S EE 01 05 32 2A 39 30 00 00 77",
    ]),
    "length-too-long": ("nobody waits for 4 GiB, nor for one byte more than a MiB", [
        "S FF FF FF FF 03 E8 00 08 00 01",
        "S 00 10 00 01 03 E8 00 08 00 01",
        f"S {IDLE}",
    ]),
    "offset-outside": ("one byte behind the end, the largest; at the end is the empty payload", [
        "C 00 00 00 08 03 E9 00 09",
        "S 00 00 00 10 03 E8 FF FF 01 05 32 2A 39 30 00 00",
        "C 00 00 00 0A 03 E9 00 0A EE EE",
        "S 00 00 00 10 03 E8 00 10 01 05 32 2A 39 30 00 00",
        "S 00 00 00 09 00 01 00 0A 00",
    ]),
    "offset-in-header": ("the client reads from there, so this shows what it takes for the payload", [
        "S 00 00 00 10 03 E8 00 00 01 05 32 2A 39 30 00 00",
        "S 00 00 00 10 03 E8 00 07 01 05 32 2A 39 30 00 00",
    ]),
    "payload-too-short": ("one byte less than the command needs, and none at all", [
        "S 00 00 00 0F 03 E8 00 08 01 05 32 2A 39 30 00",
        "S 00 00 00 08 03 E8 00 08",
        "S 00 00 00 13 03 E8 00 0C EE EE EE EE 01 05 32 2A 39 30 00",
        "C 00 00 00 08 03 EB 00 08",
        "C 00 00 00 0F 03 EC 00 08 01 2A 39 30 00 00 00",
        "C 00 00 00 08 03 EC 00 08",
        "C 00 00 00 08 00 01 00 08",
        "S 00 00 00 08 00 02 00 08",
    ]),
    "surplus": ("bytes behind those that a command needs", [
        "S 00 00 00 11 03 E8 00 08 01 05 32 2A 39 30 00 00 77",
        "C 00 00 00 09 03 E9 00 08 77",
        "S 00 00 00 10 00 02 00 08 39 30 00 00 00 00 00 77",
    ]),
    "path-end": ("without a NUL, and with one before the last byte", [
        "C 00 00 00 10 03 EC 00 08 00 01 01 00 00 00 2F 61",
        "C 00 00 00 12 03 EC 00 08 00 01 01 00 00 00 2F 00 61 00",
    ]),
    "unknown-command": ("numbers around those that there are", [
        "S 00 00 00 08 00 00 00 08",
        "S 00 00 00 08 00 03 00 08",
        "C 00 00 00 08 03 E7 00 08",
        "C 00 00 00 0A 03 ED 00 08 01 02",
        "S 00 00 00 08 FF FF 00 08",
    ]),
    "wrong-sender": ("each command from the side that never sends it", [
        f"C {INFO}",
        f"C {IDLE}",
        f"S {REQUEST}",
        f"S {RESET}",
        "S 00 00 00 09 03 EB 00 08 5A",
        f"S {UPLOAD}",
    ]),
    "not-captured": ("a capture that keeps the beginning of each frame only", [
        f"C3 {UPLOAD}",
        f"C6 {UPLOAD}",
        f"C9 {UPLOAD}",
        f"C18 {UPLOAD}",
        f"S13 {IDLE}",
        f"S16 {INFO}",
        f"S2 {IDLE}",
        "S8 00 00 00 14 03 E8 00 0C EE EE EE EE 01 05 32 2A 39 30 00 00",
        "S10 00 00 00 14 03 E8 00 0C EE EE EE EE 01 05 32 2A 39 30 00 00",
        "S10 00 00 00 0B 03 ED 00 09 01 02 03",
        f"C8 {RESET} {UPLOAD}",
    ]),
}


def segments(name, client_port):
    """The segments of one capture."""
    for line in CAPTURES[name][1]:
        sender, data = line.split(" ", 1)
        yield Segment(sender[0], bytes.fromhex(data), client_port, kept_bytes=int(sender[1:]) if sender[1:] else None)


def all_segments():
    """Name and segment of all captures: each is a connection of its own."""
    return [(name, segment) for port, name in enumerate(CAPTURES, FIRST_CLIENT_PORT) for segment in segments(name, port)]


if __name__ == "__main__":
    for file_name in CAPTURES:
        data = pcap(segments(file_name, FIRST_CLIENT_PORT))
        pathlib.Path(sys.argv[1], f"{file_name}.pcap").write_bytes(data)
