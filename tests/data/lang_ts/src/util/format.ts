/** Two decimals and the currency. */
export function formatPrice(amount: number, currency: string): string;
export function formatPrice(amount: bigint, currency: string): string;
export function formatPrice(amount: number | bigint, currency: string): string {
  return `${Number(amount).toFixed(2)} ${currency}`;
}
