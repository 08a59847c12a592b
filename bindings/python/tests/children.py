"""Runs Python scripts in child processes, which resource limits and signals may end."""

import os
import subprocess
import sys
import textwrap

#: Prefix of scripts that set limits. limit_addresses(beyond) leaves this many bytes of address space.
LIMITS = """
import resource

def limit_addresses(beyond):
    with open("/proc/self/statm") as pages:
        used = int(pages.read().split()[0]) * resource.getpagesize()
    resource.setrlimit(resource.RLIMIT_AS, (used + int(beyond), resource.RLIM_INFINITY))
"""


def run_python(script, **environment):
    given = {name: value for name, value in os.environ.items() if name != "QUENTA_LIBRARY"}
    given.update(environment)
    return subprocess.run(
        [sys.executable, "-c", textwrap.dedent(script)], env=given, capture_output=True, text=True, timeout=120
    )


def run_solver(script, **environment):
    return run_python(script, QUENTA_LIBRARY=os.environ["QUENTA_LIBRARY"], **environment)
