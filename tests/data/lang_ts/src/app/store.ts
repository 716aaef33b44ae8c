/** Where records are kept. */
export class Repository {
  count(): number {
    return 0;
  }
}

/** The orders placed so far. */
export class OrderRepository extends Repository {
  save(id: string): void {
    console.log(id);
  }

  query(): Query {
    return new Query(this);
  }
}

/** A filter over the orders. */
export class Query {
  constructor(private readonly repo: OrderRepository) {}

  where(field: string): Query {
    console.log(field);
    return this;
  }

  run(): number {
    return this.repo.count();
  }
}
