"""Where the build keeps what the whole-system programs run."""

import os
import pathlib

ROOT = pathlib.Path(__file__).resolve().parents[2]
BUILD = pathlib.Path(os.environ.get("DORVO_BUILD", ROOT / "build"))
NATIVE_BIN = BUILD / "native" / "bin"
WINDOWS_BIN = BUILD / "windows" / "bin"
PREFIX_HOME = BUILD / "windows" / "prefix"
