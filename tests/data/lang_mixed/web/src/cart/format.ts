/** A total as the shop shows it, with two decimals. */
export function formatTotal(total: number): string {
  return total.toFixed(2);
}
