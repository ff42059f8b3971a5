"""Makes the wheel that pip installs: what pyproject.toml names as the package's build backend.

Deliberate: a few files of plain Python need no build tool. So pip has nothing to fetch before it
installs them, and works without a network, in a virtual environment that has only pip, and over a
directory that cannot be written to. pip calls build_wheel and no other function.
"""

import base64
import hashlib
import pathlib
import zipfile

NAME = "velmora"
VERSION = "0.1.0"

METADATA = f"""\
Metadata-Version: 2.1
Name: {NAME}
Version: {VERSION}
Summary: velmora, an embedded in-memory relational database with timed values, from Python
License: MIT
Classifier: Operating System :: POSIX :: Linux
Classifier: Programming Language :: Python :: 3
Classifier: Topic :: Database :: Database Engines/Servers
Classifier: Typing :: Typed
Requires-Python: >=3.9
Description-Content-Type: text/markdown

"""

WHEEL = f"""\
Wheel-Version: 1.0
Generator: {NAME}
Root-Is-Purelib: true
Tag: py3-none-any
"""


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """Writes the wheel into the directory, and returns its name."""
    source = pathlib.Path(__file__).resolve().parent
    information = f"{NAME}-{VERSION}.dist-info"
    files = {f"{NAME}/{path.name}": path.read_bytes()
             for path in sorted((source / NAME).iterdir()) if path.is_file()}
    files[f"{information}/METADATA"] = METADATA.encode() + (source / "README.md").read_bytes()
    files[f"{information}/WHEEL"] = WHEEL.encode()
    record = f"{information}/RECORD"
    lines = [f"{name},sha256={_digest(content)},{len(content)}" for name, content in files.items()]
    files[record] = "\n".join([*lines, f"{record},,", ""]).encode()

    name = f"{NAME}-{VERSION}-py3-none-any.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w") as wheel:
        for path, content in files.items():
            # Without a date of its own, the same files make the same wheel.
            entry = zipfile.ZipInfo(path)
            entry.external_attr = 0o644 << 16
            wheel.writestr(entry, content, zipfile.ZIP_DEFLATED)
    return name


def _digest(content):
    return base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()
