import { Cart } from './cart';

/** A cart whose total includes the wrapping. */
export class GiftCart extends Cart {
  wrapped(): number {
    return this.total() + 2;
  }
}
