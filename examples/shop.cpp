// A shop: orders whose status moves on by itself, linked to the customers who gave them. Names and
// items come from outside and are bound to their commands.
//
//   c++ -std=c++20 shop.cpp -o shop $(pkg-config --cflags --libs velmora) && ./shop
//
// Where velmora is built but not installed, PKG_CONFIG_PATH has to name the build directory.
#include <ctime>
#include <iostream>
#include <string>

#include "velmora/velmora.hpp"

namespace {

constexpr int hour = 3600;
constexpr int day = 24 * hour;

class Shop {
 public:
  Shop() {
    // What an earlier run has left, if there was one; the children of the link first.
    for (const std::string table : {"orders", "customers"}) {
      if (hasTable(table)) database_.run("DROP TABLE " + table);
    }
    database_.run("CREATE TABLE customers id ApexInt name string(40)");
    database_.run(
        "CREATE TABLE orders id ApexInt customer int item string price float status string 3");
    database_.run("LINK orders.customer --> customers.id");
  }

  int addCustomer(const std::string& name) {
    return static_cast<int>(
        database_.run("INSERT INTO customers name = ?", name).identity().value());
  }

  // Packed for two hours, under way for three days, then delivered.
  void order(int customer, const std::string& item, double price, int secondsAgo = 0) {
    database_.run(
        "INSERT INTO orders customer = ? item = ? price = ? "
        "status = ? --> ? @ ? h --> ? @ ? d #TIME# ?",
        customer, item, price, "packed", "shipped", 2, "delivered", 3,
        std::time(nullptr) - secondsAgo);
  }

  void show() {
    const velmora::Result orders = database_.run(
        "SELECT customers.name, orders.item, orders.price, orders.status "
        "FROM orders JOIN customers ON orders.customer = customers.id");
    for (const velmora::Row& row : orders) {
      std::cout << "  " << row.get<std::string>("customers.name") << ": "
                << row.get<std::string>("orders.item") << ", " << row.get<double>("orders.price")
                << ", " << row.get<std::string>("orders.status") << "\n";
    }
  }

  // Orders that can still be cancelled.
  int cancel(int customer) {
    const auto removed =
        database_.run("DELETE FROM orders WHERE customer = ? && status = ?", customer, "packed");
    return static_cast<int>(removed.rowsAffected());
  }

  void removeCustomer(int customer) {
    database_.run("DELETE FROM customers WHERE id = ?", customer);
  }

  // What a change of all prices would give; taken back at once.
  void showSale(double price) {
    const velmora::Transaction transaction(database_);
    database_.run("UPDATE orders SET price = ?", price);
    show();
  }

 private:
  bool hasTable(const std::string& name) {
    for (const velmora::Row& row : database_.run("SHOW TABLES")) {
      if (row.get<std::string>("table") == name) return true;
    }
    return false;
  }

  velmora::Database database_{"shop.db"};
};

template <typename Attempt>
void attempt(const char* what, Attempt run) {
  try {
    run();
    std::cout << what << ": done\n";
  } catch (const velmora::Error& error) {
    std::cout << what << ": " << error.what() << "\n";
  }
}

}  // namespace

int main() {
  try {
    Shop shop;
    const int ada = shop.addCustomer("Ada");
    const int brien = shop.addCustomer("Pat O'Brien");
    shop.order(ada, "5\" nails", 3.25, 10 * day);
    shop.order(ada, "lamp", 24.5, day);
    shop.order(brien, "x' price = 0 item = 'y", 9.99);
    std::cout << "orders of ten days ago, of yesterday, and of now\n";
    shop.show();

    attempt("an order of nobody", [&] { shop.order(99, "ghost", 1); });
    attempt("forgetting Ada", [&] { shop.removeCustomer(ada); });
    attempt("a customer with both quotes", [&] { shop.addCustomer("Pat \"O'B\""); });

    std::cout << "everything at one price, only to see\n";
    shop.showSale(1);
    std::cout << "cancelled by Pat: " << shop.cancel(brien) << "\n";
    attempt("forgetting Pat", [&] { shop.removeCustomer(brien); });
    shop.show();
  } catch (const std::exception& error) {
    std::cerr << "shop: " << error.what() << "\n";
    return 1;
  }
}
