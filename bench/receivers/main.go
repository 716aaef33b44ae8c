// Lists every call x.M(...) of a concrete method in a Go source tree, as go/types resolves it:
// path, line, method name, the method's package name.Type.Method, and its file's folder.
package main

import (
	"fmt"
	"go/ast"
	"go/build"
	"go/importer"
	"go/parser"
	"go/token"
	"go/types"
	"os"
	"path/filepath"
	"strings"
)

func main() {
	root, _ := filepath.Abs(os.Args[1])
	fset := token.NewFileSet()
	imp := importer.ForCompiler(fset, "source", nil)
	filepath.Walk(root, func(dir string, info os.FileInfo, err error) error {
		if err != nil || !info.IsDir() {
			return nil
		}
		if b := filepath.Base(dir); b == "testdata" || strings.HasPrefix(b, ".") {
			return filepath.SkipDir
		}
		p, err := build.Default.ImportDir(dir, 0)
		if err != nil {
			return nil
		}
		for _, group := range [][]string{append(append([]string{}, p.GoFiles...), p.TestGoFiles...), p.XTestGoFiles} {
			var files []*ast.File
			for _, f := range group {
				af, err := parser.ParseFile(fset, filepath.Join(dir, f), nil, 0)
				if err == nil {
					files = append(files, af)
				}
			}
			if len(files) == 0 {
				continue
			}
			info := &types.Info{Selections: map[*ast.SelectorExpr]*types.Selection{}}
			conf := types.Config{Importer: imp, Error: func(error) {}}
			conf.Check(p.ImportPath, fset, files, info)
			for _, f := range files {
				ast.Inspect(f, func(n ast.Node) bool {
					call, ok := n.(*ast.CallExpr)
					if !ok {
						return true
					}
					sel, ok := call.Fun.(*ast.SelectorExpr)
					if !ok {
						return true
					}
					s := info.Selections[sel]
					if s == nil || s.Kind() != types.MethodVal {
						return true
					}
					fn := s.Obj().(*types.Func)
					recv := fn.Type().(*types.Signature).Recv()
					if recv == nil || fn.Pkg() == nil {
						return true
					}
					t := recv.Type()
					if pt, ok := t.(*types.Pointer); ok {
						t = pt.Elem()
					}
					named, ok := t.(*types.Named)
					if !ok || types.IsInterface(named) {
						return true
					}
					pos := fset.Position(sel.Sel.Pos())
					decl := fset.Position(fn.Pos())
					rel, _ := filepath.Rel(root, pos.Filename)
					ddir, _ := filepath.Rel(root, filepath.Dir(decl.Filename))
					fmt.Printf("%s\t%d\t%s\t%s.%s.%s\t%s\n", rel, pos.Line, fn.Name(), fn.Pkg().Name(),
						named.Obj().Name(), fn.Name(), ddir)
					return true
				})
			}
		}
		return nil
	})
}
