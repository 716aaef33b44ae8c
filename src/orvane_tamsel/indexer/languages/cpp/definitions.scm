; Macros, out-of-line members at any depth (`a::B::m`), destructors and operators.
(preproc_function_def name: (identifier) @name) @definition.macro
(preproc_def name: (identifier) @name) @definition.macro
(function_declarator declarator: (qualified_identifier) @name) @definition.method
(function_declarator declarator: (destructor_name) @name) @definition.method
(function_declarator declarator: (operator_name) @name) @definition.method
