; Type evidence: annotations, the values names and `self.x` attributes are bound to, and what
; functions return or yield.
(typed_parameter (identifier) @typed.name type: (type) @typed.type)
(typed_default_parameter name: (identifier) @typed.name type: (type) @typed.type)
(assignment left: (identifier) @typed.name type: (type) @typed.type)
(assignment left: (identifier) @bound.name right: (_) @bound.value)
; The whole `value as name`: in a `with`, the name is what entering the value gives.
(as_pattern alias: (as_pattern_target (identifier) @bound.name)) @bound.value
(assignment left: (attribute) @attribute type: (type) @typed.type)
(assignment left: (attribute) @attribute right: (_) @bound.value)
(return_statement (_) @returned)
(yield) @yielded
; `a, b = value`: each name is bound to one element of the value.
(assignment left: [(pattern_list) (tuple_pattern)] @unpacked.list right: (_) @unpacked.value)
(as_pattern (_) @unpacked.value alias: (as_pattern_target (tuple) @unpacked.list))
; `for x in value`: x is bound to an element of the value.
(for_statement left: (identifier) @iterated.name right: (_) @iterated.value)
; isinstance tests: where each holds (an `if`'s or `while`'s block, the rest of the block after
; `assert` or an `if` whose body leaves, an `elif` or `else`) and, within an expression, the
; branch of `... if ... else ...`, the operand after `and` / `or`, a comprehension's `if`.
[(if_statement) (elif_clause) (while_statement) (assert_statement) (conditional_expression)
 (boolean_operator) (if_clause)] @narrow
; `[... for x in value]`: x, inside the comprehension, is an element of the value.
(for_in_clause left: (identifier) @comprehended.name right: (_) @comprehended.value)
