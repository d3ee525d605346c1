"""Reads a BitBake recipe: assignments of quoted values and `inherit`, which is all that our recipes need."""

import re

ASSIGNMENT = re.compile(r'([A-Z_a-z][\w:${}-]*(?:\[\w+\])?)\s*(\?\?=|\?=|\.=|\+=|=)\s*"([^"]*)"')
INHERIT = re.compile(r"inherit ((?:[\w-]+ ?)+)")


def statements(text):
    """The lines with their continuations joined; comments and empty lines left out."""
    joined = text.replace("\\\n", "")
    return [line.strip() for line in joined.splitlines() if line.strip() and not line.startswith("#")]


class Recipe:
    """Its values as written, and with the values of the build system put in."""

    def __init__(self, path, surroundings):
        self.values, self.classes, self.wrong = {}, [], []
        name, _, version = path.stem.partition("_")
        self.surroundings = {"PN": name, "PV": version, "BP": f"{name}-{version}", **surroundings}
        for line in statements(path.read_text(encoding="utf-8")):
            assignment, inherit = ASSIGNMENT.fullmatch(line), INHERIT.fullmatch(line)
            if assignment:
                self.values[assignment[1]] = self.values.get(assignment[1], "") * (assignment[2] in (".=", "+=")) + assignment[3]
            elif inherit:
                self.classes += inherit[1].split()
            else:
                self.wrong.append(line)

    def __getitem__(self, name):
        return self.expanded(self.values[name])

    def expanded(self, text):
        """Like BitBake, but a variable that nobody sets is an error."""
        while match := re.search(r"\$\{([^${}]+)\}", text):
            name = match[1]
            text = text.replace(match[0], self.values.get(name, self.surroundings.get(name)))
        return text

    def options(self, *chosen):
        """What the recipe adds to CMake's command line when these features of PACKAGECONFIG are chosen."""
        words = self["EXTRA_OECMAKE"].split()
        for name in self.values:
            if feature := re.fullmatch(r"PACKAGECONFIG\[(\w+)\]", name):
                yes, no = self[name].split(",")[:2]
                words.append(yes if feature[1] in chosen else no)
        return words

    def files(self):
        """Package to the patterns of its files, in the order in which packages take files."""
        given = {name.replace("${PN}", "PN").partition(":")[2]: self[name] for name in self.values
                 if name.startswith("FILES:")}
        folders = self.surroundings
        defaults = {"PN-doc": f"{folders['docdir']} {folders['mandir']}",
                    "PN-bash-completion": f"{folders['datadir']}/bash-completion"}
        order = ["PN-bash-completion", "PN-staticdev", "PN-dev", "PN-doc",
                 *self.values["PACKAGE_BEFORE_PN"].replace("${PN}", "PN").split(), "PN"]
        return {package: {**defaults, **given}[package].split() for package in order}
