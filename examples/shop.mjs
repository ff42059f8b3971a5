// A shop: orders whose status moves on by itself, linked to the customers who gave them. Names and
// items come from outside and are bound to their commands.
//
//   node shop.mjs
//
// bindings/node/README.md says how the package gets here.
import { VelmoraError, open } from 'velmora';

const hour = 3600;
const day = 24 * hour;

class Shop {
  #database = open('shop.db');

  constructor() {
    // What an earlier run has left, if there was one; the child of the link first.
    const tables = this.#database.prepare('SHOW TABLES').pluck().all();
    for (const table of ['orders', 'customers']) {
      if (tables.includes(table)) this.#database.exec(`DROP TABLE ${table}`);
    }
    this.#database.exec([
      'CREATE TABLE customers id ApexInt name string(40)',
      'CREATE TABLE orders id ApexInt customer int item string price double status string 3',
      'LINK orders.customer --> customers.id']);
  }

  close() {
    this.#database.close();
  }

  addCustomer(name) {
    return this.#database.run('INSERT INTO customers name = ?', name).lastInsertRowid;
  }

  // Packed for two hours, under way for three days, then delivered.
  order(customer, item, price, secondsAgo = 0) {
    this.#database.run(
      'INSERT INTO orders customer = ? item = ? price = ? '
        + 'status = ? --> ? @ ? h --> ? @ ? d #TIME# ?',
      customer, item, price, 'packed', 'shipped', 2, 'delivered', 3,
      Math.floor(Date.now() / 1000) - secondsAgo);
  }

  orders() {
    return this.#database.all(
      'SELECT customers.name, orders.item, orders.price, orders.status '
        + 'FROM orders JOIN customers ON orders.customer = customers.id');
  }

  // What a change of all prices would give; taken back at once.
  ordersOnSale(price) {
    this.#database.exec('BEGIN');
    this.#database.run('UPDATE orders SET price = ?', price);
    const orders = this.orders();
    this.#database.exec('ROLLBACK');
    return orders;
  }

  // Orders that can still be cancelled.
  cancel(customer) {
    return this.#database.run('DELETE FROM orders WHERE customer = ? && status = ?',
      customer, 'packed').changes;
  }

  removeCustomer(customer) {
    this.#database.run('DELETE FROM customers WHERE id = ?', customer);
  }
}

function show(orders) {
  for (const order of orders) {
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
try {
  const ada = shop.addCustomer('Ada');
  const brien = shop.addCustomer("Pat O'Brien");
  shop.order(ada, '5" nails', 3.25, 10 * day);
  shop.order(ada, 'lamp', 24.5, day);
  shop.order(brien, "x' price = 0 item = 'y", 9.99);
  console.log('orders of ten days ago, of yesterday, and of now');
  show(shop.orders());

  attempt('an order of nobody', () => shop.order(99, 'ghost', 1));
  attempt('forgetting Ada', () => shop.removeCustomer(ada));
  attempt('a customer with both quotes', () => shop.addCustomer('Pat "O\'B"'));

  console.log('everything at one price, only to see');
  show(shop.ordersOnSale(1));
  console.log(`cancelled by Pat: ${shop.cancel(brien)}`);
  attempt('forgetting Pat', () => shop.removeCustomer(brien));
  show(shop.orders());
} finally {
  shop.close();
}
