package shop

import "testing"

func TestAdd(t *testing.T) {
	c := New()
	c.Add(1)
	k := &Cart{}
	k.Add(2)
	s := &Store{}
	s.Add(3)
	s.Count()
}
