"""velmora, an embedded in-memory relational database with timed values.

    import velmora

    with velmora.Engine("data") as engine:
        engine.query("CREATE TABLE lamps name string watts int")
        engine.query("INSERT INTO lamps name = ? watts = ?", "north", 40)
        for row in engine.query("SELECT * FROM lamps WHERE watts > ?", 10).rows:
            print(row["name"], row["watts"])

A process has one engine. Values are bound to the command's question marks, never pasted into it.
The engine is the library libvelmora, loaded when an engine is first started: the file that the
environment variable VELMORA_LIBRARY names, or else the installed one.
"""

from velmora._engine import Answer, Engine, Value, library_version
from velmora._library import Error

__all__ = ["Answer", "Engine", "Error", "Value", "library_version"]
