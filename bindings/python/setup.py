"""The wheel contains the shared library, so it depends on the platform, but not on the version of Python."""

from setuptools import setup
from setuptools.dist import Distribution
from wheel.bdist_wheel import bdist_wheel


class PlatformDistribution(Distribution):
    def has_ext_modules(self) -> bool:
        return True


class PlatformWheel(bdist_wheel):
    def get_tag(self):
        return ("py3", "none", super().get_tag()[2])


setup(distclass=PlatformDistribution, cmdclass={"bdist_wheel": PlatformWheel})
