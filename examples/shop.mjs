// A shop: orders whose status moves on by itself, linked to the customers who gave them. Names and
// items come from outside and are bound to their commands.
//
//   node shop.mjs
//
// bindings/node/README.md says how the package gets here; where the library is built but not
// installed, VELMORA_LIBRARY has to name it.
import { Engine, VelmoraError } from 'velmora';

const hour = 3600;
const day = 24 * hour;

class Shop {
  #engine = new Engine();

  open() {
    this.#engine.start();
    // What an earlier run has left, if there was one; the child of the link first.
    this.#tryQuery('DROP TABLE orders');
    this.#tryQuery('DROP TABLE customers');
    this.#engine.query('CREATE TABLE customers id ApexInt name string(40)');
    this.#engine.query('CREATE TABLE orders '
      + 'id ApexInt customer int item string price float status string 3');
    this.#engine.query('LINK orders.customer --> customers.id');
  }

  close() {
    this.#engine.stop();
  }

  addCustomer(name) {
    this.#engine.query('INSERT INTO customers name = ?', name);
    return this.#engine.query('SELECT id FROM customers WHERE name = ?', name).rows.at(-1).id;
  }

  // Packed for two hours, under way for three days, then delivered.
  order(customer, item, price, secondsAgo = 0) {
    this.#engine.query(
      'INSERT INTO orders customer = ? item = ? price = ? '
        + 'status = ? --> ? @ ? h --> ? @ ? d #TIME# ?',
      customer, item, price, 'packed', 'shipped', 2, 'delivered', 3,
      Math.floor(Date.now() / 1000) - secondsAgo);
  }

  orders() {
    return this.#engine.query(
      'SELECT customers.name, orders.item, orders.price, orders.status '
        + 'FROM orders JOIN customers ON orders.customer = customers.id').rows;
  }

  // Orders that can still be cancelled.
  cancel(customer) {
    return this.#engine.query('DELETE FROM orders WHERE customer = ? && status = ?',
      customer, 'packed').affected;
  }

  removeCustomer(customer) {
    this.#engine.query('DELETE FROM customers WHERE id = ?', customer);
  }

  #tryQuery(command) {
    try {
      this.#engine.query(command);
    } catch (error) {
      if (!(error instanceof VelmoraError)) throw error;
    }
  }
}

function show(shop) {
  for (const order of shop.orders()) {
    console.log(`  ${order['customers.name']}: ${order['orders.item']}, ${order['orders.price']}, `
      + order['orders.status']);
  }
}

function attempt(what, run) {
  try {
    run();
    console.log(`${what}: done`);
  } catch (error) {
    if (!(error instanceof VelmoraError)) throw error;
    console.log(`${what}: ${error.message}`);
  }
}

const shop = new Shop();
shop.open();
try {
  const ada = shop.addCustomer('Ada');
  const brien = shop.addCustomer("Pat O'Brien");
  shop.order(ada, '5" nails', 3.25, 10 * day);
  shop.order(ada, 'lamp', 24.5, day);
  shop.order(brien, "x' price = 0 item = 'y", 9.99);
  console.log('orders of ten days ago, of yesterday, and of now');
  show(shop);

  attempt('an order of nobody', () => shop.order(99, 'ghost', 1));
  attempt('forgetting Ada', () => shop.removeCustomer(ada));
  attempt('a customer with both quotes', () => shop.addCustomer('Pat "O\'B"'));

  console.log(`cancelled by Pat: ${shop.cancel(brien)}`);
  attempt('forgetting Pat', () => shop.removeCustomer(brien));
  show(shop);
} finally {
  shop.close();
}
