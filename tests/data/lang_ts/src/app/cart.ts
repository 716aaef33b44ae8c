import { formatPrice } from '../util/format';

/** A line of the cart. */
export interface Item {
  name: string;
  price: number;
}

/**
 * Cart holds the items a customer picked.
 */
export class Cart {
  private items: Item[] = [];

  constructor(private readonly currency: string) {}

  /** Adds an item to the cart. */
  add(item: Item): void {
    this.items.push(item);
    this.log(item.name);
  }

  total(): number {
    return this.items.reduce((sum, i) => sum + i.price, 0);
  }

  describe(): string {
    return formatPrice(this.total(), this.currency);
  }

  /** The price of an item, by name or position. */
  priceOf(name: string): number;
  priceOf(index: number): number;
  priceOf(key: string | number): number {
    const item = typeof key === 'number' ? this.items[key] : this.items.find((i) => i.name === key);
    return item ? item.price : 0;
  }

  private log(name: string): void {
    console.log(name);
  }
}

export enum Status {
  Open,
  Paid,
}

export const emptyCart = (currency: string): Cart => new Cart(currency);
