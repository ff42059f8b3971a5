// The smallest program in JavaScript: node hello.mjs
//
// bindings/node/README.md says how the package gets here.
import { open } from 'velmora';

const database = open('hello.db');
try {
  database.exec('CREATE TABLE lamps name string colour string 2');
  database.run('INSERT INTO lamps name = ? colour = ? --> ? @ ? s', 'north', 'red', 'green', 30);
  const rows = database.all('SELECT name, colour FROM lamps WHERE colour = ?', 'red');
  for (const { name, colour } of rows) console.log(name, 'is', colour);
} finally {
  database.close();
}
