import { OrderService } from './orders';

describe('OrderService', () => {
  it('places an order', () => {
    const service = new OrderService();
    expect(service.place('a1')).toBe(0);
  });
});
