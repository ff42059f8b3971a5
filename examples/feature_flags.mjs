// A feature-flag service in JavaScript: each flag belongs to a team and switches itself at the time
// that it was given. The service keeps what is on until the answer changes by itself, which it
// knows the second of; it can say what will be on next week, and who has to be asked.
//
//   node feature_flags.mjs
//
// bindings/node/README.md says how the package gets here.
import { ConstraintError, openAsync } from 'velmora';

const hour = 3_600;
const day = 24 * hour;

const on = 'SELECT name FROM flags WHERE enabled = true';

class Flags {
  #database;
  #set;
  #switch;
  #on;
  #kept = null; // what is on, as long as that is known to be true

  static async open(path, clock) {
    const database = await openAsync(path, { clock });
    const tables = database.prepare('SHOW TABLES').pluck().all();
    if (!tables.includes('flags')) {
      database.exec([
        'CREATE TABLE teams name string contact string',
        'CREATE TABLE flags name string team string enabled bool 3',
        'LINK flags.team --> teams.name']);
    }
    return new Flags(database);
  }

  constructor(database) {
    this.#database = database;
    this.#set = database.prepare('INSERT INTO flags name = ? team = ? enabled = ?');
    this.#switch = database.prepare('UPDATE flags SET enabled = ? --> ? @ ? s WHERE name = ?');
    this.#on = database.prepare(`${on} ORDER BY name`).pluck();
  }

  close() {
    return this.#database.closeAsync();
  }

  // Teams and flags from elsewhere, all or none, while other requests go on.
  async load(teams, flags) {
    this.#kept = null;
    await this.#database.transactionAsync(async (transaction) => {
      await transaction.runMany('INSERT INTO teams name = ? contact = ?', teams);
      await transaction.runMany(this.#set, flags);
    });
  }

  // A state from now on, and the opposite one so many seconds later.
  switchFor(name, isOn, seconds) {
    this.#kept = null;
    return this.#switch.run(isOn, !isOn, seconds, name).changes;
  }

  // Answered from memory until the second at which the answer becomes another. A service that
  // pushes changes to its clients sets a timer to that second instead.
  on(now) {
    if (this.#kept === null || (this.#kept.changesAt ?? Infinity) <= now) {
      this.#kept = this.#on.all();
    }
    return this.#kept;
  }

  // What will be on then, if nobody intervenes.
  onAt(second) {
    return this.#database.prepare(`${on} ORDER BY name AT ?`).pluck().all(second);
  }

  ownerOf(name) {
    return this.#database.get('SELECT teams.contact FROM flags JOIN teams '
      + 'ON flags.team = teams.name WHERE flags.name = ?', name)?.['teams.contact'];
  }

  next(name) {
    return this.#database.read('SELECT enabled FROM flags WHERE name = ?', name)
      .timed(0, 'enabled');
  }
}

// The program's own clock, which does not make its readers wait.
let now = 1_800_000_000;
const flags = await Flags.open('flags.db', () => now);
const show = (what, names) => console.log(`${what}: ${names.join(', ') || 'nothing'}`);

await flags.load(
  [['search', 'Ada'], ['shop', "Pat O'Brien"]],
  [['beta search', 'search', false], ['new checkout', 'shop', true], ["x' y", 'shop', true]]);
flags.switchFor('beta search', true, 14 * day);
flags.switchFor('new checkout', false, hour);
show('on now', flags.on(now));
console.log(`to be kept for ${(flags.on(now).changesAt - now) / hour} hour`);
show('on tomorrow', flags.onAt(now + day));
show('on in three weeks', flags.onAt(now + 21 * day));
console.log(`new checkout is ${flags.ownerOf('new checkout')}'s`);
const { next, changesAt } = flags.next('beta search');
console.log(`beta search becomes ${next} in ${(changesAt - now) / day} days`);

now += hour;
show('an hour later', flags.on(now));
console.log(`to be kept for ${((flags.on(now).changesAt - now) / day).toFixed(2)} days`);

try {
  await flags.load([['mail', 'Grace']], [['digest', 'mail', true], ['ghost', 'nobody', true]]);
} catch (error) {
  if (!(error instanceof ConstraintError)) throw error;
  console.log(`refused: ${error.message}`);
}
console.log(`and nothing of it is there: ${flags.ownerOf('digest')}`);
await flags.close();
