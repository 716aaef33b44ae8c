const { Cart } = require('../lib/cart');

describe('Cart', () => {
  test('totals the prices', () => {
    const cart = new Cart();
    cart.add({ price: 2 });
    expect(cart.total()).toBe(2);
  });
});
