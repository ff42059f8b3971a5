"""The smallest program in Python: python3 hello.py

docs/examples.md says what PYTHONPATH and VELMORA_LIBRARY have to name where nothing is installed.
"""

import velmora

with velmora.open("hello.db") as database:
    database.run("CREATE TABLE lamps name string colour string 2")
    database.run("INSERT INTO lamps name = ? colour = ? --> ? @ ? s", "north", "red", "green", 30)
    for row in database.run("SELECT name, colour FROM lamps WHERE colour = ?", "red"):
        print(row["name"], "is", row["colour"])
