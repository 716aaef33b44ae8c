import { Cart } from './cart';

describe('Cart', () => {
  it('adds an item', () => {
    const cart = new Cart('EUR');
    cart.add({ name: 'tea', price: 3 });
    expect(cart.total()).toBe(3);
  });
});
