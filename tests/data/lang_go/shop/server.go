package shop

import "strings"

// Context carries one request.
type Context struct {
	engine *Engine
}

// Next runs the next handler.
func (c *Context) Next() {}

// Engine routes requests; its Cart's methods are promoted.
type Engine struct {
	pool Pool
	Cart
}

type Pool struct{}

func (p *Pool) Get() *Context { return nil }

func (e *Engine) handle() {}

func (e *Engine) Use(h func(*Context)) *Engine { return e }

// Default is the engine every handler shares.
var Default = NewEngine()

func NewEngine() *Engine { return &Engine{} }

func build() (*Engine, error) { return nil, nil }

type YAML struct{ data string }

func (y YAML) Render(b *strings.Builder) { b.WriteString(y.data) }

func serve(c *Context) {
	c.engine.handle()
	c.engine.pool.Get().Next()
	NewEngine().Use(func(c *Context) { c.Next() })
	e, err := build()
	if err == nil {
		e.Use(nil).Add(1)
	}
	YAML{"a"}.Render(nil)
	Default.handle()
	for _, k := range []*Engine{} {
		k.handle()
	}
	pools := map[string]Pool{}
	pools["a"].Get()
}
