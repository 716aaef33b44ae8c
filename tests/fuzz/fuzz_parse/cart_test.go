package shop

import "testing"

func TestAdd(t *testing.T) {
	c := New()
	c.Add(1)
	k := &Cart{}
	k.Add(2)
}
