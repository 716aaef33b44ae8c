; Macros, which the grammar's tags leave out.
(preproc_function_def name: (identifier) @name) @definition.macro
(preproc_def name: (identifier) @name) @definition.macro
; Initialized variables; the rules keep those of declarations at file or namespace scope.
; (Rooted at the declarator: a pattern rooted at `declaration` takes milliseconds to compile.)
(init_declarator declarator: [(identifier) @name (pointer_declarator declarator: (identifier) @name) (array_declarator declarator: (identifier) @name)]) @definition.constant
