// The smallest program in JavaScript.
import { Engine } from 'velmora';

const engine = new Engine().start();
try {
  engine.query('CREATE TABLE lamps name string colour string 2');
  engine.query('INSERT INTO lamps name = ? colour = ? --> ? @ ? s', 'north', 'red', 'green', 30);
  const { rows } = engine.query('SELECT name, colour FROM lamps WHERE colour = ?', 'red');
  for (const { name, colour } of rows) console.log(name, 'is', colour);
} finally {
  engine.stop();
}
