"""A feature-flag service in Python: each flag switches itself at the time that it was given, and
the service only ever asks what is the case now, or will be. Every name comes from outside and is
bound to its command, so no name can say more than itself.

    python3 feature_flags.py

docs/examples.md says what PYTHONPATH has to name where nothing is installed.
"""

import contextlib
import time

import velmora

HOUR = 3600
DAY = 24 * HOUR


class Clock:
    """The service's time. It begins now, and goes on when somebody waits, so that this example is
    over at once; a service leaves the clock to the system, and sleeps."""

    def __init__(self):
        self.second = int(time.time())

    def now(self):
        return self.second

    def wait_until(self, second):
        self.second = second


class Flags:
    """The flags of one service, each with the team that owns it."""

    def __init__(self, connection):
        self._connection = connection
        with connection:
            connection.executebatch([
                "CREATE TABLE teams team string",
                "CREATE TABLE flags name string team string enabled bool 2",
                "LINK flags.team --> teams.team"])

    def add_team(self, team):
        with self._connection:
            self._connection.execute("INSERT INTO teams team = ?", (team,))

    def add(self, name, team, is_on):
        with self._connection:
            self._connection.execute("INSERT INTO flags name = ? team = ? enabled = ?",
                                     (name, team, is_on))

    def set(self, name, is_on):
        """Switches a flag for good."""
        with self._connection:
            self._connection.execute("UPDATE flags SET enabled = ? WHERE name = ?", (is_on, name))

    def set_until(self, name, is_on, second, now):
        """Gives a flag a state from now on, and the opposite one from that second on."""
        with self._connection:
            self._connection.execute("UPDATE flags SET enabled = ? --> ? @ ? s WHERE name = ?",
                                     (is_on, not is_on, second - now, name))

    def on(self, at=None):
        """The flags that are on, now or at a second: a cursor, which knows when that changes."""
        command = "SELECT name FROM flags WHERE enabled = ? ORDER BY name"
        if at is None:
            return self._connection.execute(command, (True,))
        return self._connection.execute(f"{command} AT {int(at)}", (True,))


def names(rows):
    return ", ".join(row["name"] for row in rows) or "none"


def main():
    clock = Clock()
    start = clock.now()
    with contextlib.closing(velmora.connect("flags.db", clock=clock.now)) as connection:
        flags = Flags(connection)

        print("-- two teams, three flags: one for two weeks, one from the next hour on, "
              "one for good")
        for team in ("search", "shop"):
            flags.add_team(team)
        flags.add("beta search", "search", False)
        flags.add("new checkout", "shop", False)
        flags.add("dark mode", "shop", True)
        flags.set_until("beta search", True, start + 14 * DAY, start)
        flags.set_until("new checkout", False, start + HOUR, start)
        print("on now:", names(flags.on()))

        print("-- a flag belongs to a team that there is, and a team with flags stays")
        for command, values in (("INSERT INTO flags name = ? team = ?", ("x", "sales")),
                                ("DELETE FROM teams WHERE team = ?", ("shop",))):
            try:
                connection.execute(command, values)
            except velmora.IntegrityError as error:
                print(f"{type(error).__name__}: {error}")

        print("-- names are only names, whatever they hold")
        for name in ("O'Brien's \"beta\"", "x' enabled = true y = '"):
            flags.add(name, "search", False)
        try:
            flags.add("a name of more bytes than the sixty that a string has by default", "shop",
                      True)
        except velmora.RangeError as error:
            print(f"refused: {error}")

        print("-- a preview: what is on at a time to come")
        for days in (0, 1, 15):
            print(f"in {days} days:", names(flags.on(at=start + days * DAY)))

        print("-- the next change as a timer: an answer is kept until the second that it names")
        answer = flags.on()
        while True:
            hours = (clock.now() - start) // HOUR
            print(f"after {hours} hours:", names(answer))
            if answer.changes_at is None:
                break
            clock.wait_until(answer.changes_at)
            answer = flags.on()

        print("-- switched off early, and for good")
        flags.set("new checkout", False)
        print("on now:", names(flags.on()))


if __name__ == "__main__":
    main()
