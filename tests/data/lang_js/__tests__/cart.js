const { Cart } = require('../lib/cart');
const Receipt = require('../lib/receipt');

describe('Cart', () => {
  test('totals the prices', () => {
    const cart = new Cart();
    cart.add({ price: 2 });
    expect(cart.total()).toBe(2);
    const receipt = new Receipt();
    receipt.print();
  });
});
