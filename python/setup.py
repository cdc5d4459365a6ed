"""The wheel holds a library for one processor, which any Python loads: scripts/make-python says for which machines."""

import os

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel


class Binary(Distribution):
    """Holds a library, though none that setuptools builds."""

    def has_ext_modules(self):
        return True


class Wheel(bdist_wheel):
    """Not for one Python, but for one kind of machine."""

    def get_tag(self):
        return "py3", "none", os.environ["KORVANE_WHEEL_MACHINES"]


setup(distclass=Binary, cmdclass={"bdist_wheel": Wheel})
