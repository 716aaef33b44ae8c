/// Two decimals and the currency.
pub fn format_price(amount: u32) -> String {
    format!("{} EUR", amount)
}
