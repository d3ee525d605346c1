"""Every test that docs/threat-model.md names is there."""

import pathlib
import re

import pytest

REPOSITORY = pathlib.Path(__file__).resolve().parents[2]
NAMED = re.findall(r"`(\w+\.(?:py|cpp))::(\w+)`", (REPOSITORY / "docs" / "threat-model.md").read_text())


def test_the_page_names_tests():
    assert len(set(NAMED)) > 15


@pytest.mark.parametrize("file, test", sorted(set(NAMED)))
def test_a_claim_has_its_test(file, test):
    [path] = (REPOSITORY / "tests").rglob(file)
    definition = rf"^def {test}\(" if path.suffix == ".py" else rf"^TEST(?:_F|_P)?\(\w+, {test}\)"
    assert re.search(definition, path.read_text(), re.MULTILINE), f"{path} has no {test}"
