"""What every test here is made from."""
import os
import unittest

import sandbox
from world import HOSTS, RESOLVERS, World

_place = {}


def prepare(folder, binaries):
    """Once per test program, inside its namespaces."""
    _place.update(folder=folder, binaries=binaries)
    sandbox.set_up_network(folder, HOSTS, RESOLVERS)


class WorldTest(unittest.TestCase):
    """A test with a world of its own, whose orderly end is part of the test."""

    longMessage = True
    maxDiff = None

    def setUp(self):
        self.world = make_world()
        self.addCleanup(self.world.close)


class SharedWorldTest(unittest.TestCase):
    """Tests that are many and small, and share one world: a new account takes seconds to make."""

    longMessage = True
    maxDiff = None

    @classmethod
    def setUpClass(cls):
        cls.world = make_world()
        cls.addClassCleanup(cls.world.close)


def make_world():
    folder = os.path.join(_place["folder"], str(len(os.listdir(_place["folder"]))))
    os.makedirs(folder)
    return World(folder, _place["binaries"])
