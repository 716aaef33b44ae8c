const { formatPrice } = require('./format');

/**
 * Cart holds the items a customer picked.
 */
class Cart {
  constructor() {
    this.items = [];
  }

  /** Adds an item. */
  add(item) {
    this.items.push(item);
  }

  total() {
    return this.items.reduce((sum, i) => sum + i.price, 0);
  }

  label() {
    return formatPrice(this.total());
  }
}

function emptyCart() {
  return new Cart();
}

module.exports = { Cart, emptyCart };
