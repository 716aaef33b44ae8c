package shop

// Base counts changes.
type Base struct{ n int }

func (b *Base) Count() int { return b.n }

// Cart holds items.
type Cart struct {
	*Base
	items []int
}

// Add puts an item in the cart.
func (c *Cart) Add(x int) { c.items = append(c.items, x); c.total(); c.Count() }

func (c *Cart) total() int { return len(c.items) }

func New() *Cart { return &Cart{} }
