"""The smallest program in Python."""

import velmora

with velmora.Engine() as engine:
    engine.query("CREATE TABLE lamps name string colour string 2")
    engine.query("INSERT INTO lamps name = ? colour = ? --> ? @ ? s", "north", "red", "green", 30)
    for row in engine.query("SELECT name, colour FROM lamps WHERE colour = ?", "red"):
        print(row["name"], "is", row["colour"])
