"""A feature-flag service in Python: each flag switches itself at the time that it was given, and
the service only ever asks what is the case now. Every name comes from outside and is bound to its
command, so no name can say more than itself.

    python3 feature_flags.py

docs/examples.md says what PYTHONPATH and VELMORA_LIBRARY have to name where nothing is installed.
"""

import time

import velmora

HOUR = 3600
DAY = 24 * HOUR


class Flags:
    """The flags of one service, in an open database."""

    def __init__(self, database):
        self._database = database
        try:
            database.run("CREATE TABLE flags name string enabled bool 2")
        except velmora.ExistsError:
            pass  # an earlier run has made it

    def set(self, name, is_on):
        """Switches a flag for good."""
        if self._database.run("UPDATE flags SET enabled = ? WHERE name = ?",
                              is_on, name).affected == 0:
            self._database.run("INSERT INTO flags name = ? enabled = ?", name, is_on)

    def set_until(self, name, is_on, seconds, since):
        """Gives a flag a state now and the opposite one in so many seconds, counted from since."""
        if self._database.run(
                "UPDATE flags SET enabled = ? --> ? @ ? s WHERE name = ? #TIME# ?",
                is_on, not is_on, seconds, name, int(since)).affected == 0:
            self._database.run(
                "INSERT INTO flags name = ? enabled = ? --> ? @ ? s #TIME# ?",
                name, is_on, not is_on, seconds, int(since))

    def is_on(self, name):
        return bool(self._database.run("SELECT name FROM flags WHERE name = ? && enabled = ?",
                                       name, True).rows)

    def all_on(self):
        return self._database.run("SELECT name FROM flags WHERE enabled = ?", True)


def main():
    now = time.time()
    with velmora.open("flags.db") as database:
        flags = Flags(database)

        print("-- on for two weeks from now; on for an hour, two hours ago; off until an hour ago")
        flags.set_until("beta search", True, 14 * DAY, now)
        flags.set_until("happy hour", True, HOUR, now - 2 * HOUR)
        flags.set_until("new checkout", False, HOUR, now - 2 * HOUR)
        for name in ("beta search", "happy hour", "new checkout"):
            print(f"{name}: {'on' if flags.is_on(name) else 'off'}")

        print("-- names are only names, whatever they hold")
        for name in ("O'Brien's \"beta\"", "x' enabled = true y = '"):
            flags.set(name, False)
            print(f"{name}: {'on' if flags.is_on(name) else 'off'}")
        try:
            flags.set("a name of more bytes than the sixty that a string has by default", True)
        except velmora.RangeError as error:
            print(f"refused: {error}")

        print("-- what is on now may be kept until the first of these flags switches itself")
        on = flags.all_on()
        print("on now:", ", ".join(row["name"] for row in on))
        print("days to keep it:", round((on.next_change - now) / DAY))

        print("-- switched off early, and for good")
        flags.set("beta search", False)
        print("on now:", ", ".join(row["name"] for row in flags.all_on()))


if __name__ == "__main__":
    main()
