"""The man pages of the simulated server and its scenarios against the program, its tables and docs/simulator.md."""

import re
import socket
import subprocess

import pytest

from sources import PROGRAMS, REPOSITORY, Page, one, source, squeezed, without_names

SERVER = Page("corvane-sim.1")
SCENARIO = Page("corvane-scenario.5")
DOCUMENT = source("docs/simulator.md")
DEADLINE = 60.0  # seconds; only a failing test waits this long


def server(*arguments, **environment):
    return subprocess.run([PROGRAMS / "corvane", *arguments], stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                          timeout=DEADLINE, check=False, env=environment)


def answer(scenario, folder):
    """What the server says to a scenario instead of starting."""
    (folder / "scenario").write_text(f"{scenario}\n")
    return server("-f", "-s", str(folder / "scenario"))


# corvane-sim(1)

USAGE = server("-h").stdout


def test_the_options_are_those_of_the_usage_text():
    in_usage = [f"{option} {value.lower()}".strip() for option, value in
                re.findall(r"^  (-\w)(?: ([A-Z]+))?  +\S", USAGE, re.M)]
    in_page = [terms[0].replace("\0", "") for terms, _ in SERVER.definitions("DESCRIPTION")]
    assert in_page == in_usage
    synopsis = SERVER.section("SYNOPSIS").replace("corvane-sim", "")
    assert {f"-{letter}" for letter in re.findall(r"-(\w)\b", synopsis)} == {name[:2] for name in in_usage}


def test_the_values_are_those_of_the_usage_text():
    values = re.findall(r"^  (-\w) (.*) \(default (\d+)\)$", USAGE, re.M)
    assert [option for option, _, _ in values] == ["-i", "-p"]
    for option, meaning, default in values:
        [entry] = [text for terms, text in SERVER.definitions("DESCRIPTION") if terms[0].startswith(option)]
        assert f"Default: {default}." in entry
        assert all(bounds in entry for bounds in re.findall(r"\d+ to \d+", meaning))


def test_the_environment_is_that_of_the_usage_text():
    in_page = [terms[0] for terms, _ in SERVER.definitions("ENVIRONMENT")]
    assert sorted(in_page) == sorted(set(re.findall(r"CORVANE_\w+", USAGE)))
    table = DOCUMENT[DOCUMENT.index("## Environment"):DOCUMENT.index("## What it answers")]
    assert in_page == re.findall(r"^\| `(CORVANE_\w+)`", table, re.M)


def test_the_exit_statuses_are_those_of_the_document():
    table = DOCUMENT[DOCUMENT.index("| exit status"):DOCUMENT.index("It listens on")]
    assert [terms[0] for terms, _ in SERVER.definitions("EXIT STATUS")] == re.findall(r"^\| (\d|other) \|", table, re.M)


DIAGNOSTICS = [without_names(term) for terms, _ in SERVER.definitions("The server") for term in terms]
# What ends a start: arguments, environment, and the pieces of the entry it belongs to.
ENDS = {
    "a taken port": (["-f", "-p", "PORT"], {}, "port|is already in use"),
    "a scenario that is no file": (["-f", "-s", "/"], {}, ":"),
    "a log that cannot be opened": (["-f"], {"CORVANE_LOG": "/none/log"}, ":"),
    "no such scenario": (["-f", "-s", "none"], {}, "no scenario '|'; looked for"),
    "a wrong variable": (["-f"], {"CORVANE_IDLE_SECONDS": "x"}, ": expected|, got"),
    "a wrong setting": (["-f"], {"CORVANE_SETTINGS": "speed x"}, ": expected|, got"),
    "a scenario that says so": (["-f", "-s", "refuses-start"], {}, "refuses to start, as the scenario says"),
    "an operand": (["x"], {}, "unexpected operand '|'"),
    "an unknown option": (["-x"], {}, "unknown option"),
    "no value": (["-p"], {}, "needs a value"),
    "a wrong value": (["-p", "x"], {}, "needs|, got '|'"),
}


def fixed(term):
    """What does not vary in an entry."""
    return "|".join(piece.strip() for piece in term.removeprefix("corvane: ").split("\0") if piece.strip())


@pytest.mark.parametrize("why", ENDS)
def test_what_ends_a_start_is_in_the_page(why):
    arguments, environment, pieces = ENDS[why]
    with socket.create_server(("127.0.0.1", 0)) as taken:
        port = str(taken.getsockname()[1])
        run = server(*[word.replace("PORT", port) for word in arguments], **environment)
    line = run.stderr.splitlines()[0]
    assert run.returncode and run.stdout == ""
    assert pieces in [fixed(term) for term in DIAGNOSTICS
                      if re.fullmatch(".+".join(re.escape(piece) for piece in term.split("\0")), line)], line


def test_every_diagnostic_is_tried():
    tried = {pieces for _, _, pieces in ENDS.values()}
    entries = {fixed(term) for term in DIAGNOSTICS}
    assert entries - tried == {"cannot listen on port|:", "():"}  # what the system seldom does
    assert "cannot listen on \" + name" in source("sim/Listeners.cpp") and '"fork()"' in source("sim/Background.cpp")


def test_the_examples_of_the_server_name_what_there_is():
    examples = "\n".join(SERVER.literals("EXAMPLES"))
    variables = dict(re.findall(r"(CORVANE_\w+)=(\S+)", re.sub('"(.*?) (.*?)"', r"\1_\2", examples)))
    assert set(variables) <= {terms[0] for terms, _ in SERVER.definitions("ENVIRONMENT")} and len(variables) == 3
    assert variables["CORVANE_SCENARIO"] in {path.stem for path in (REPOSITORY / "sim/scenarios").iterdir()}
    assert server("-f", "-s", "refuses-start", CORVANE_SETTINGS=variables["CORVANE_SETTINGS"].replace("_", " ")
                  ).returncode == 1
    assert "/.varnex/bin/corvane -f" in examples


COMMAND = source("sim/corvane-sim.in")


def test_the_texts_of_the_command_are_those_of_the_page():
    texts = re.findall(r'fail "\$[\w/{}]+: (.*?)"', COMMAND)  # behind the path in question
    assert sorted(terms[0] for terms, _ in SERVER.definitions("The command")) == sorted(texts)
    assert sorted({*re.findall(r"\bexit (\d)", COMMAND)}) == ["1", "2"]
    assert "status 0 when the root is laid out, with 1 when it is not, and with 2 after wrong" in SERVER.section("EXIT STATUS")


def test_the_marks_that_a_path_may_hold_are_those_of_the_command():
    [marks] = re.findall(r"tr -d 'A-Za-z0-9(\S+?)\\200", COMMAND)
    assert f"{marks}-" in SERVER.section("DESCRIPTION") and f"digits and {marks}- only" in COMMAND


def test_the_files_are_those_that_are_laid_out():
    named = [terms[0] for terms, _ in SERVER.definitions("FILES")]
    assert named == ["/usr/libexec/corvane-sim", "folder/.varnex/bin/corvane", "folder/.varnex/share/corvane/scenarios"]
    installed = source("tests/install/files")
    assert "\tlibexec/corvane-sim/bin/corvane\n" in installed and "\tlibexec/corvane-sim/share/corvane/scenarios/" in installed


# corvane-scenario(5)

def words_between(text, before, after):
    return re.search(rf"{before}([^)]*){after}", text)[1].split(", ")


@pytest.fixture(scope="module")
def everything(tmp_path_factory):
    """What the server expects in place of a word that it does not know."""
    return answer("nonsense", tmp_path_factory.mktemp("scenario")).stderr


def first_words(title):
    return list(dict.fromkeys(terms[0].split()[0] for terms, _ in SCENARIO.definitions(title)))


def test_the_settings_are_those_of_the_program(everything):
    assert first_words("SETTINGS") == words_between(everything, r"a setting \(", r"\)")


def test_the_steps_are_those_of_the_program(everything):
    assert first_words("STEPS") == words_between(everything, r"a step \(", r"\)")


def test_the_structure_is_that_of_the_program(everything):
    assert set(first_words("STRUCTURE")) - {"\0step\0"} == set(re.findall(r"'(\w+)'(?=,| or)", everything))


# What cannot stand behind these words, and so has the server say what can.
TRIALS = [
    *(f"{name} wrong" for name in ["bitrate", "block", "bytes", "write-time", "prepare-time", "search-time",
                                   "erase-time", "verify-time", "speed", "range", "idle", "listen-delay",
                                   "refuse start", "payload-offset", "split", "coalesce", "process-id", "packet",
                                   "half", "exit"]),
    *(f'{name} ""' for name in ["application", "version", "version-label", "journal", "log"]),
    "repeat wrong", "split 5 pause wrong", "coalesce 5 within wrong", "state Idle progress wrong",
    "state Idle address wrong", "state Idle mode wrong",
]


@pytest.mark.parametrize("trial", TRIALS)
def test_the_bounds_are_those_of_the_program(trial, tmp_path):
    run = answer(trial, tmp_path)
    assert run.returncode == 2
    expected = run.stderr.split("expected", 1)[1]
    entries = [f"{terms[0]} {text}" for title in ["SETTINGS", "STEPS", "STRUCTURE"]
               for terms, text in SCENARIO.definitions(title) if terms[0].split()[0] == trial.split()[0]]
    entry = " ".join(entries)
    for bounds in re.findall(r"\d+ to \d+", expected):
        assert bounds in entry
    for longest in re.findall(r"at most \d+s", expected):
        assert longest in (SCENARIO.section("VALUES") if longest == "at most 3600s" else entry)
    assert re.search(r"\d", expected)


def test_the_trials_try_every_word(everything):
    tried = {trial.split()[0] for trial in TRIALS}
    words = words_between(everything, r"a setting \(", r"\)") + words_between(everything, r"a step \(", r"\)")
    assert set(words) - tried == {"ignore", "normal", "wait", "report", "greet", "send", "silence", "speak", "close",
                                  "reset", "die"}  # a table of words each, a time, bytes or nothing


# A value for each name in italics.
SAMPLES = {"NUMBER": "8", "TIME": "1s", "HEX": "00", "TEXT": "x", "STATE": "Idle", "MOMENT": "done", "COMMAND": "ping",
           "field": "progress 1", "step": "report"}
FORMS = [(title, term) for title in ["SETTINGS", "STEPS", "STRUCTURE"]
         for terms, _ in SCENARIO.definitions(title) for term in terms]


def lines_of(term):
    """What an entry allows: with all that may be absent and without, and each of what a bar separates."""
    words = re.sub("[a-zA-Z]+", lambda name: SAMPLES.get(name[0], name[0]), term)
    words = squeezed(re.sub("\0|[.]{3}", "", words)).replace("bitrate 8", "bitrate 8000")
    for line in dict.fromkeys([re.sub(r"[][]", "", words), re.sub(r" \[.*?\]", "", words)]):
        first, _, second = line.partition(" | ")
        yield first
        if second:
            yield f"{first.rsplit(' ', 1)[0]} {second}"


@pytest.mark.parametrize("title, term", FORMS, ids=[term.replace("\0", "") for _, term in FORMS])
def test_what_an_entry_allows_can_be_read(title, term, tmp_path):
    for line in lines_of(term):
        text = {"repeat": f"{line}\nreport\nend", "end": "repeat 2\nreport\nend"}.get(line.split()[0], line)
        (tmp_path / "scenario").write_text(f"{text}\n")
        run = server("-f", "-s", str(tmp_path / "scenario"), CORVANE_SETTINGS="refuse start 7")
        assert run.returncode == 7, run.stderr


# What stands behind a word, whose page entry has the bounds, and the bounds as the server has them.
@pytest.mark.parametrize("trial, value", [("state wrong", "STATE"), ("ignore wrong", "COMMAND"),
                                          ("normal until 101%", "PERCENT")])
def test_the_bounds_of_a_value_are_those_of_the_program(trial, value, tmp_path):
    [entry] = [text for terms, text in SCENARIO.definitions("VALUES") if terms[0].strip("\0") == value]
    bounds = {"STATE": "0 to 255", "COMMAND": None, "PERCENT": "0% to 100%"}[value]
    said = answer(trial, tmp_path).stderr
    found = bounds or re.search(r"\d+ to \d+", said)[0]
    assert found in said and f"number from {found.replace('%', '')}" in entry


def test_what_may_be_absent_is_that_of_the_document():
    grammar = DOCUMENT[DOCUMENT.index("    setting   ="):DOCUMENT.index("    field     =")]
    in_document = {found[1] for found in re.finditer(r'^ +(?:\w+ += |\| )"([\w-]+)".*\[', grammar, re.M)}
    # "{ field }" and "{ HEX }" may be absent as well.
    in_page = {term.split()[0] for _, term in FORMS if "[" in term}
    assert in_page - {"state", "packet"} == in_document - {"state", "packet"}


def test_limits_and_defaults_that_have_no_trial(tmp_path):
    steps = {terms[0].split()[0]: text for terms, text in SCENARIO.definitions("STEPS")}
    assert steps["exit"].endswith("0 to 255 (0).") and "ends with a status (0)" in DOCUMENT
    said = answer("repeat 99999\nreport\nreport\nend", tmp_path).stderr
    assert re.search(r"at most \d+ steps", said)[0] in SCENARIO.section("STRUCTURE")
    seconds = re.search(r"\d+ to \d+", server("-f", CORVANE_IDLE_SECONDS="x").stderr)[0]
    assert f"without a client, {seconds}." in SERVER.section("ENVIRONMENT")


def test_the_fields_of_a_state_are_those_of_the_program(tmp_path):
    [entry] = [text for terms, text in SCENARIO.definitions("STEPS") if terms[0].startswith("state")]
    bytes_, serial = re.search(r"A field is (.*) with a number from 0 to 255, or (.*)\.$", entry).groups()
    line = "state Idle " + " ".join(f"{name} 255" for name in re.split(", | or ", bytes_))
    name, none = re.fullmatch(r"(\w+) with a number or (\w+)", serial).groups()
    for word in ("8", none):
        assert answer(f"refuse start 7\n{line} {name} {word}", tmp_path).returncode == 7


WORD_TABLES = {
    "STATE": re.findall(r'StateName\{\d+, "(\w+)"\}', source("sim/Status.h")),
    "MOMENT": re.findall(r'MomentWord\{"(\w+)"', source("sim/ScenarioSteps.cpp")),
    "COMMAND": re.findall(r'CommandWord\{"([\w-]+)"', source("sim/ScenarioSettings.cpp")),
}


@pytest.mark.parametrize("value", WORD_TABLES)
def test_the_words_are_those_of_the_program(value):
    entry = next(text for terms, text in SCENARIO.definitions("VALUES") if terms[0].strip("\0") == value)
    named = entry.split(", or ")[1].rstrip(".").split(", ")
    assert WORD_TABLES[value] and named == WORD_TABLES[value]


def test_the_units_are_those_of_the_program():
    units = re.findall(r'Unit\{"(\w+)",', source("sim/ScenarioWords.cpp"))
    assert f"{', '.join(units[:-1])} or {units[-1]}:" in SCENARIO.section("VALUES")


def test_the_defaults_are_those_of_the_document():
    grammar = DOCUMENT[DOCUMENT.index("    setting   ="):DOCUMENT.index("    step      =")]
    rules = re.findall(r'[|=] "([\w-]+)".*\((?:or after )?("?[\w ]+?"?)(?: apart)?\)$', grammar, re.M)
    entries = SCENARIO.definitions("SETTINGS")
    assert len(rules) > 12
    for name, default in rules:
        texts = [text for terms, text in entries if terms[0].split()[0] == name]
        assert any(re.search(rf"\((or after )?{re.escape(default)}( apart)?\)\.", text) for text in texts), name


def test_the_ready_scenarios_are_those_of_the_folder():
    [table] = SCENARIO.tables("READY SCENARIOS")
    named = [name for row in table[1:] for name in row[0].split(", ")]
    assert sorted(named) == sorted(path.stem for path in (REPOSITORY / "sim/scenarios").iterdir())
    in_document = re.findall(r"^\| (`[^|]+`) \| ([^|]+) \|$", DOCUMENT[DOCUMENT.index("### Ready scenarios"):], re.M)
    assert [row for row in table[1:]] == [[cell.replace("`", "") for cell in row] for row in in_document]


EXAMPLES = [text for title in ["DESCRIPTION", "EXAMPLES"] for text in SCENARIO.literals(title)
            if "corvane:" not in text]


@pytest.mark.parametrize("text", EXAMPLES)
def test_an_example_can_be_read(text, tmp_path):
    # The status comes when the whole scenario has been read.
    assert answer(f"refuse start 7\n{text}", tmp_path).returncode == 7


def test_there_are_examples():
    assert len(EXAMPLES) == 4


def test_the_message_of_the_page_is_one_of_the_program(tmp_path):
    [shown] = [squeezed(text) for text in SCENARIO.literals("DESCRIPTION") if "corvane:" in text]
    said = squeezed(answer("\n\nbitrate fast", tmp_path).stderr)
    assert said.replace(str(tmp_path / "scenario"), "file") == shown


def test_the_way_it_plays_is_that_of_the_document():
    document = DOCUMENT[DOCUMENT.index("### How it plays"):DOCUMENT.index("### Ready scenarios")].split("\n", 1)[1]
    said = squeezed(re.sub(r"^- |`", "", document, flags=re.M))
    assert SCENARIO.section("HOW IT PLAYS").removeprefix("HOW IT PLAYS ") == said


def test_limits_of_the_document_stand_in_the_page():
    assert "at most 1 MiB" in SCENARIO.section("DESCRIPTION")
    assert one(r"kLargestScenarioBytes = (.*?);", "sim/Configuration.h") == "std::size_t{1024} * 1024"
