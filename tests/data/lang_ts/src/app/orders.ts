import { OrderRepository, Query } from './store';

/** Opens the repository orders are kept in. */
export async function openRepository(): Promise<OrderRepository> {
  return new OrderRepository();
}

/** Places orders and reports on them. */
export class OrderService {
  private readonly repo = new OrderRepository();

  place(id: string): number {
    this.repo.save(id);
    const q: Query = this.repo.query();
    q.where('id');
    return this.repo.query().where('id').run();
  }

  async audit(other: OrderRepository): Promise<number> {
    const opened = await openRepository();
    const all = new Query(other);
    return all.run() + other.count() + opened.count();
  }
}
