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
        folder = os.path.join(_place["folder"], str(len(os.listdir(_place["folder"]))))
        os.makedirs(folder)
        self.world = World(folder, _place["binaries"])
        self.addCleanup(self.world.close)
