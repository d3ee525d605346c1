"""The command line as a technician types it: texts byte for byte and exit statuses."""

import pytest

VERSION = "Dev-trunk 1901-01-01 00:00:00 UTC\n"


def usage(program, hexfile="Null", mode="ISOStyle", address="fe", serial="0", port="41265", host="localhost", interface="0"):
    return (
        f"Usage: {program} [<option>]*\n"
        "  Available options:\n"
        "   -h / -?         Show this message\n"
        "   -u[hexfile]     Upload the indicated hex file\n"
        "   -m[mode]        'ISOStyle', 'MTCAN', 'NewModule', 'Global'\n"
        "   -a[address]     Address of the device\n"
        "   -n[serialnum]   Serial number of the device\n"
        "   -p[portnum]     Connect using the indicated port number\n"
        "   -s[host name]   name of the host computer where the server is running\n"
        "   -i[interface]   CAN interface index (0 => CAN0, 1=> CAN1, etc)\n"
        "   -v              Show version\n"
        " \n"
        "Default values:\n"
        f"   hexfile         '{hexfile}'\n"
        f"   mode            '{mode}'\n"
        f"   address         0x{address}\n"
        f"   serialnum       {serial}\n"
        f"   portnum         {port}\n"
        f"   host name       '{host}'\n"
        f"   interface       CAN{interface}\n"
    )


USAGE_ROWS = {
    "help shows the defaults and ends with 0": (["-h"], 0, "", {}),
    "question mark ends with 1": (["-?"], 1, "", {}),
    "unknown option is treated as question mark": (["-x"], 1, "", {}),
    "missing argument is treated as question mark": (["-u"], 1, "", {}),
    "options before help show up": (["-n", "5", "-h"], 0, "", {"serial": "5"}),
    "options after help do not": (["-h", "-n", "5"], 0, "", {}),
    "a later option overrides an earlier one": (["-n5", "-n6", "-h"], 0, "", {"serial": "6"}),
    "every setting": (
        ["-u", "a.hex", "-m", "Global", "-a", "0x1F", "-n", "7", "-p", "2000", "-s", "::1", "-i", "-1", "-h"],
        0,
        "",
        {"hexfile": "a.hex", "mode": "Global", "address": "1f", "serial": "7", "port": "2000", "host": "::1", "interface": "-1"},
    ),
    "wrong case of a mode gives ISOStyle": (["-m", "mtcan", "-h"], 0, "", {}),
    "MTCAN": (["-m", "MTCAN", "-h"], 0, "", {"mode": "MTCAN"}),
    "NewModule": (["-m", "NewModule", "-h"], 0, "", {"mode": "NewModule"}),
    "upper-case X ends the number": (["-a", "0X1F", "-h"], 0, "", {"address": "0"}),
    "decimal address": (["-a", "31", "-h"], 0, "", {"address": "1f"}),
    "negative address in hexadecimal": (["-a", "-1", "-h"], 0, "", {"address": "ffffffff"}),
    "largest port": (["-p", "65535", "-h"], 0, "", {"port": "65535"}),
    "garbage after a number is not looked at": (["-p", "2000x", "-i", "3z", "-h"], 0, "", {"port": "2000", "interface": "3"}),
    "version first, then usage": (["-v", "-h"], 0, VERSION, {}),
    "version twice": (["-v", "-v", "-?"], 1, VERSION + VERSION, {}),
}


@pytest.mark.parametrize("row", USAGE_ROWS.values(), ids=USAGE_ROWS.keys())
def test_usage(rig, row):
    arguments, status, output, settings = row
    run = rig.run(*arguments)
    assert run.wait() == status
    assert run.errors.decode() == usage(rig.program, **settings)
    assert run.output.decode() == output


@pytest.mark.parametrize("port", ["80", "1999", "65536", "-1", "0", "x", "", "99999999999999999999"])
def test_port_outside_the_range_is_refused_and_named_twice(rig, port):
    run = rig.run("-p", port, "-u", "no.hex")
    assert run.wait() == 1
    assert run.errors.decode() == f"Invalid port number: {port}\nValid range        : [2000..65535]{port}\n"
    assert run.output == b""


def test_a_bad_port_ends_before_later_options(rig):
    run = rig.run("-p", "80", "-v", "-h")
    assert run.wait() == 1
    assert run.output == b""


def test_without_hex_file_nothing_is_started(rig):
    rig.stub_tool("start-stop-daemon", f'echo started >"{rig.launches}"')
    run = rig.run("-a", "1", "-n", "2")
    assert run.wait() == 0
    assert (run.output, run.errors) == (b"", b"")
    assert not rig.launches.exists()


def test_version_alone_prints_the_label_and_ends_with_0(rig):
    run = rig.run("-v")
    assert run.wait() == 0
    assert (run.output.decode(), run.errors) == (VERSION, b"")
