import { formatTotal } from './format';

/** CartView renders the cart summary in the browser. */
export class CartView {
  constructor(private readonly total: number) {}

  /** The summary line under the cart. */
  render(): string {
    return `Total: ${formatTotal(this.total)}`;
  }
}
