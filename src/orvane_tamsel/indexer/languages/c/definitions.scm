; Macros, which the grammar's tags leave out.
(preproc_function_def name: (identifier) @name) @definition.macro
(preproc_def name: (identifier) @name) @definition.macro
; Initialized variables; the rules keep those at file or namespace scope.
(declaration declarator: (init_declarator declarator: (identifier) @name)) @definition.constant
(declaration declarator: (init_declarator declarator: (pointer_declarator declarator: (identifier) @name))) @definition.constant
(declaration declarator: (init_declarator declarator: (array_declarator declarator: (identifier) @name))) @definition.constant
