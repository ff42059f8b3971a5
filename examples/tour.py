# Sixty seconds in Python: python3 tour.py
import time

import velmora

db = velmora.connect("tour.db")
if not db.execute("SHOW TABLES").fetchall():
    db.execute("CREATE TABLE users id ApexInt name string plan string 2")
added = db.execute("INSERT INTO users name = ? plan = ? --> ? @ 14 d", ("Ada", "trial", "basic"))
db.commit()
for user in db.execute("SELECT plan FROM users WHERE id = ?", (added.lastrowid,)):
    timed = user.timed("plan")
    days = round((timed.second - time.time()) / 86400)
    print(f"{user['plan']}, then {timed.next} in {days} days")
db.execute("DELETE FROM users")  # a transaction begins by itself
db.rollback()
try:
    db.execute("SELECT name FROM user")
except velmora.Error as error:
    print(f"error {error.code} at byte {error.offset}: {error}")
db.close()
