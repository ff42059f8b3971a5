"""Makes the wheel that pip installs: what pyproject.toml names as the package's build backend.

    python3 wheel_backend.py EXTENSION DIRECTORY    writes it around an extension that is built

Deliberate: one extension and a few files of plain Python need no build tool but CMake. So pip has
nothing to fetch before it installs them, and works without a network, in a virtual environment that
has only pip, and over a directory that cannot be written to. pip asks for the metadata, which takes
no build, and then for the wheel. The extension is built in the source tree of velmora, or with an
installed static library, as CMake finds it.
"""

import base64
import hashlib
import os
import pathlib
import subprocess
import sys
import sysconfig
import tempfile
import zipfile

NAME = "velmora"
VERSION = "0.1.0"
SOURCE = pathlib.Path(__file__).resolve().parent
PLATFORM = sysconfig.get_platform().replace("-", "_").replace(".", "_")
TAG = f"cp39-abi3-{PLATFORM}"
EXTENSION = "_velmora.abi3.so"

METADATA = f"""\
Metadata-Version: 2.1
Name: {NAME}
Version: {VERSION}
Summary: velmora, an embedded in-memory relational database with timed values, after PEP 249
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
Root-Is-Purelib: false
Tag: {TAG}
"""


INFORMATION = f"{NAME}-{VERSION}.dist-info"


def prepare_metadata_for_build_wheel(metadata_directory, config_settings=None):
    """Writes the wheel's metadata into the directory, and returns the name of theirs."""
    directory = pathlib.Path(metadata_directory, INFORMATION)
    directory.mkdir()
    for name, content in _information().items():
        (directory / name).write_bytes(content)
    return INFORMATION


def build_wheel(wheel_directory, config_settings=None, metadata_directory=None):
    """Builds the extension, writes the wheel into the directory, and returns its name."""
    with tempfile.TemporaryDirectory() as build:
        return write_wheel(_built_extension(build), wheel_directory)


def write_wheel(extension, wheel_directory):
    """Writes the wheel around a built extension, and returns its name."""
    files = {f"{NAME}/{path.name}": path.read_bytes()
             for path in sorted((SOURCE / NAME).iterdir()) if path.is_file()}
    files[f"{NAME}/{EXTENSION}"] = pathlib.Path(extension).read_bytes()
    files.update({f"{INFORMATION}/{name}": content for name, content in _information().items()})
    record = f"{INFORMATION}/RECORD"
    lines = [f"{name},sha256={_digest(content)},{len(content)}" for name, content in files.items()]
    files[record] = "\n".join([*lines, f"{record},,", ""]).encode()

    name = f"{NAME}-{VERSION}-{TAG}.whl"
    with zipfile.ZipFile(pathlib.Path(wheel_directory) / name, "w") as wheel:
        for path, content in files.items():
            # Without a date of its own, the same files make the same wheel.
            entry = zipfile.ZipInfo(path)
            entry.external_attr = 0o644 << 16
            wheel.writestr(entry, content, zipfile.ZIP_DEFLATED)
    return name


def _information():
    return {"METADATA": METADATA.encode() + (SOURCE / "README.md").read_bytes(),
            "WHEEL": WHEEL.encode()}


def _built_extension(build):
    tree = SOURCE.parent.parent
    is_tree = (tree / "src" / "velmora.cpp").exists()
    # What is installed below the same directory as this one is found, wherever that is.
    options = (["-DVELMORA_PYTHON_PACKAGE=ON", "-DVELMORA_INSTALL=OFF"] if is_tree
               else [f"-DCMAKE_PREFIX_PATH={SOURCE.parents[4]}"])
    subprocess.run(
        ["cmake", "-S", tree if is_tree else SOURCE, "-B", build, "-DCMAKE_BUILD_TYPE=Release",
         f"-DVELMORA_PYTHON={sys.executable}", *options], check=True)
    subprocess.run(["cmake", "--build", build, "--parallel", str(os.cpu_count()),
                    "--target", "velmora_python"], check=True)
    return pathlib.Path(build, "python", NAME, EXTENSION)


def _digest(content):
    return base64.urlsafe_b64encode(hashlib.sha256(content).digest()).rstrip(b"=").decode()


if __name__ == "__main__":
    write_wheel(*sys.argv[1:])
