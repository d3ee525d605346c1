import os

import pytest

import harness


def pytest_addoption(parser):
    parser.addoption("--build", required=True, help="build folder whose programs are tested")
    parser.addoption("--shard", default="1/1", help="K/N: only the K-th of N parts, which may run at the same time")


def pytest_collection_modifyitems(config, items):
    part, parts = map(int, config.getoption("--shard").split("/"))
    items[:] = items[part - 1 :: parts]


def pytest_configure(config):
    config.addinivalue_line("markers", "soak: long repetition, left out of the quick run")


@pytest.fixture(scope="session")
def private_processes():
    """True in a process namespace of our own, where every process is one of ours."""
    return harness.private_processes()


@pytest.fixture
def rig(request, tmp_path, private_processes):
    """A private installation; what the test started is gone afterwards, and nothing else was left behind."""
    made = harness.Rig(request.config.getoption("--build"), tmp_path)
    yield made
    made.close()
    if private_processes:
        harness.end_processes("corvane")
        shared_objects = [name for name in os.listdir("/dev/shm") if "dunmallow" in name or "corvane" in name]
        assert shared_objects == []
        assert harness.processes_named("dunmallow") == []
