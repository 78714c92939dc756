"""Runs the test modules named on the command line; says on one line each what is skipped, and why.

The environment variable LIBRARIES is the folder of the module, PLUGINS the plugin libraries of the tests. PACKAGES may
name a virtual environment of the same Python that has more packages; where it is there, the tests run in it.
"""

import os
import pathlib
import sys
import unittest

SKIPPED = 77  # as CTest is told

python = pathlib.Path(os.environ.pop("PACKAGES", "")) / "bin/python"
if python.is_absolute() and python.exists():
    os.execv(python, [python, *sys.argv])

sys.path.insert(0, os.environ["LIBRARIES"])
sys.path.insert(0, str(pathlib.Path(__file__).parent))
try:
    import numpy  # noqa: F401
except ImportError as error:
    print(f"{sys.argv[1]}: Skipped\nPython module: {error} (Debian: python3-numpy)")
    sys.exit(SKIPPED)

result = unittest.TextTestRunner(verbosity=2).run(unittest.defaultTestLoader.loadTestsFromNames(sys.argv[1:]))
for test, reason in result.skipped:
    print(f"{test.id()}: Skipped\n{reason}")
if not result.wasSuccessful():
    sys.exit(1)
if result.testsRun == 0:
    sys.exit("no test ran")
sys.exit(SKIPPED if len(result.skipped) == result.testsRun else 0)
