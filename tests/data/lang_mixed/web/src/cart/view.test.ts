import { CartView } from './view';

describe('CartView', () => {
  it('renders the total', () => {
    const view = new CartView(3);
    expect(view.render()).toBe('Total: 3.00');
  });
});
