; The first statement of a module, class or function body, when it is a string.
(module . (expression_statement (string) @docstring))
(class_definition body: (block . (expression_statement (string) @docstring))) @definition
(function_definition body: (block . (expression_statement (string) @docstring))) @definition
