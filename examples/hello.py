"""The smallest program in Python: python3 hello.py

docs/examples.md says what PYTHONPATH has to name where nothing is installed.
"""

import velmora

connection = velmora.connect("hello.db")
with connection:
    connection.execute("CREATE TABLE lamps name string colour string 2")
    connection.execute("INSERT INTO lamps name = ? colour = ? --> ? @ ? s",
                       ("north", "red", "green", 30))
for row in connection.execute("SELECT name, colour FROM lamps WHERE colour = ?", ("red",)):
    print(row["name"], "is", row["colour"])
connection.close()
