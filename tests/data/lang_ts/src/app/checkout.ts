import * as fmt from '../util/format';
import { Cart } from './cart';

export function checkout(cart: Cart): string {
  audit();
  return fmt.formatPrice(cart.total(), 'EUR');
}
