; Constants and statics at module level, which the grammar's tags leave out.
(source_file (const_item name: (identifier) @name) @definition.constant)
(source_file (static_item name: (identifier) @name) @definition.constant)

; Path calls: `Cart::new()`, `price::format()`.
(call_expression function: (scoped_identifier name: (identifier) @name)) @reference.call
