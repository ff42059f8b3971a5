"""The smallest program in Python: python3 hello.py

docs/examples.md says what PYTHONPATH and VELMORA_LIBRARY have to name where nothing is installed.
"""

import velmora

with velmora.Engine() as engine:
    engine.query("CREATE TABLE lamps name string colour string 2")
    engine.query("INSERT INTO lamps name = ? colour = ? --> ? @ ? s", "north", "red", "green", 30)
    for row in engine.query("SELECT name, colour FROM lamps WHERE colour = ?", "red"):
        print(row["name"], "is", row["colour"])
