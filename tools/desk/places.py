"""Where things lie: the project's own files, and the program's fixed paths."""

import os
from pathlib import Path

SOURCE = Path(__file__).resolve().parents[2]
BUILD = SOURCE / "build" / os.environ.get("BOOTLUME_PRESET", "release")

DEVICE = "/dev/v4l/by-path/platform-imx-ipuv3-ovl.5-video-index0"
SOCKET = "/tmp/.bootlume"
TRACE_CONFIG = "/opt/userdata/trace_config"
LANGUAGE = "/opt/userdata/devicestack/appData/confd/GeneratorConfiguration"


def python_environment():
    """For a Python program that a test starts: it finds the packages that the test finds."""
    return {**os.environ, "PYTHONPATH": f"{SOURCE}:{SOURCE / 'tools'}"}
