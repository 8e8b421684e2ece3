"""Where the build keeps what the whole-system programs run."""

import pathlib
import sys

sys.path.append(str(pathlib.Path(__file__).resolve().parents[2] / "cmake" / "package"))

from programs import BUILD, ROOT, WINDOWS_BIN  # noqa: E402, F401

NATIVE_BIN = BUILD / "native" / "bin"
PREFIX_HOME = BUILD / "windows" / "prefix"
