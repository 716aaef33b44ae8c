package shop

// Store sells from one cart.
type Store struct {
	Cart
}
