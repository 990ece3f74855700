"""The wheel is for one kind of system, for the sake of the libraries in it, and for any Python 3."""

import os

from setuptools import Distribution, setup
from wheel.bdist_wheel import bdist_wheel


class WithLibraries(Distribution):  # type: ignore[misc]
    def has_ext_modules(self) -> bool:
        return True


class Wheel(bdist_wheel):  # type: ignore[misc]
    def get_tag(self) -> tuple[str, str, str]:
        return "py3", "none", os.environ["KVPIM_WHEEL_TAG"]


# Without libraries in it, the package takes the system's and is the same everywhere.
if "KVPIM_WHEEL_TAG" in os.environ:
    setup(distclass=WithLibraries, cmdclass={"bdist_wheel": Wheel})
else:
    setup()
