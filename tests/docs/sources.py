"""What the sources, the pages and the programs say, for tests that compare them."""

import copy
import os
import pathlib
import re
import subprocess
import xml.etree.ElementTree

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
PROGRAMS = pathlib.Path(os.environ.get("DUNMALLOW_PROGRAMS", REPOSITORY / "build/native/bin"))


def source(path):
    return (REPOSITORY / path).read_text()


def one(pattern, path):
    """What the group of the pattern holds at its only place in a file."""
    [found] = re.findall(pattern, source(path), re.DOTALL)
    return found


# Options of the flasher, and whether each takes a value.
GETOPT = one(r'getopt\(argc, argv, "([^"]*)"\)', "src/app/OptionParser.cpp")
OPTIONS = {letter: colon == ":" for letter, colon in re.findall(r"([^:])(:?)", GETOPT)}
# Modes: name on the command line to name on the screen, in order of their numbers.
MODES = dict(re.findall(r'ModeRow\{\w+, "(\w+)", "([\w ]+)"\}', source("src/Hardware/UploadNames.cpp")))
PORT = one(r"port = (\d+);", "src/app/FlasherOptions.h")
# States: number to name in the code, and what the screen shows for each, in order of their numbers.
STATES = {int(number): name for name, number in
          re.findall(r"(\w+) = (\d+)", one(r"enum TState : std::uint32_t \{(.*?)\};", "src/Hardware/UploadTypes.h"))}
_SHOWN = dict(re.findall(r'names\[(\w+)\] = "([^"]*)";', source("src/Hardware/UploadNames.cpp")))
STATE_TEXTS = [_SHOWN[STATES[number]] for number in sorted(STATES)]


def squeezed(text):
    """The text with one blank for each run of blanks and line ends."""
    return " ".join(text.split())


# In place of what varies in a term.
VARIES = "\0"


class Page:
    """A man page as a reader gets it: mandoc's output, cut at its headings."""

    def __init__(self, name):
        output = subprocess.run(["mandoc", "-T", "html", "-O", "fragment", str(REPOSITORY / "docs/man" / name)],
                                stdout=subprocess.PIPE, text=True, check=True).stdout
        tree = xml.etree.ElementTree.fromstring(f"<page>{output}</page>")
        self.sections = {self.text(section[0]): section for section in tree.iter("section")}

    @staticmethod
    def text(element):
        return squeezed("".join(element.itertext()))

    def section(self, title):
        return self.text(self.sections[title])

    def tables(self, title):
        """The tables of a section: rows of as many cells as the first has."""
        tables = [[[self.text(cell) for cell in row] for row in table.iter("tr")]
                  for table in self.sections[title].iter("table")
                  if {"tbl", "Bl-column"} & {*table.get("class").split()}]
        return [[row + [""] * (len(table[0]) - len(row)) for row in table] for table in tables]

    def literals(self, title):
        """What stands letter by letter in a section, line ends and all."""
        return ["".join(element.itertext()) for element in self.sections[title].iter()
                if element.tag == "pre" or "Bd-indent" in element.get("class", "") and element.find("pre") is None]

    def definitions(self, title):
        """The definitions of a section: their terms and the text that belongs to them."""
        found, terms = [], []
        for entry in (entry for listing in self.sections[title].iter("dl") for entry in listing):
            if entry.tag == "dt":
                terms.append(self._term(entry))
            elif self.text(entry):
                found.append((terms, self.text(entry)))
                terms = []
        return found

    def _term(self, element):
        marked = copy.deepcopy(element)
        for varying in marked.iter("var"):
            varying.text = f"{VARIES}{self.text(varying)}{VARIES}"
        return self.text(marked)


def without_names(term):
    """The term with one mark for each word that varies."""
    return re.sub(f"{VARIES}[^{VARIES}]*{VARIES}", VARIES, term)
