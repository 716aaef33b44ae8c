; Macros, out-of-line members at any depth (`a::B::m`), destructors and operators.
(preproc_function_def name: (identifier) @name) @definition.macro
(preproc_def name: (identifier) @name) @definition.macro
(function_declarator declarator: (qualified_identifier) @name) @definition.method
(function_declarator declarator: (destructor_name) @name) @definition.method
(function_declarator declarator: (operator_name) @name) @definition.method
; Initialized variables; the rules keep those of declarations at file or namespace scope.
; (Rooted at the declarator: a pattern rooted at `declaration` takes milliseconds to compile.)
(init_declarator declarator: [(identifier) @name (pointer_declarator declarator: (identifier) @name) (array_declarator declarator: (identifier) @name)]) @definition.constant
; A specialization of a class template (`class vector<bool, A> {...}`) holds its members as the
; template does.
(class_specifier name: (template_type name: (type_identifier) @name) body: (_)) @definition.class
(struct_specifier name: (template_type name: (type_identifier) @name) body: (_)) @definition.class
; Type aliases, and typedefs of pointers and functions (the grammar's tags name only plain ones).
(alias_declaration name: (type_identifier) @name) @definition.type
(type_definition declarator: (pointer_declarator declarator: (type_identifier) @name)) @definition.type
(type_definition declarator: (function_declarator declarator: (parenthesized_declarator (pointer_declarator declarator: (type_identifier) @name)))) @definition.type
