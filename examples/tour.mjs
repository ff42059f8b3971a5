// node tour.mjs
import { open } from 'velmora';

const db = open('tour.db');
if (db.all('SHOW TABLES').length === 0) {
  db.run('CREATE TABLE users id ApexInt name string plan string 2');
}
const added = db.run('INSERT INTO users name = ? plan = ? --> ? @ 14 d', 'Ada', 'trial', 'basic');
const user = db.read('SELECT plan FROM users WHERE id = ?', added.lastInsertRowid);
const { next, changesAt } = user.timed(0, 'plan');
const days = Math.round((changesAt - Date.now() / 1000) / 86400);
console.log(`${user.rows[0].plan}, then ${next} in ${days} days`);
const change = db.transaction(() => {
  db.run('DELETE FROM users');
  db.all('SELECT name FROM user'); // throws, so that all of it is rolled back
});
try {
  change();
} catch (error) {
  console.log(`error ${error.number} at byte ${error.offset}: ${error.message}`);
}
db.close();
