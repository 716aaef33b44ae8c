; What the grammar's own tags leave to the JavaScript ones, which share these node types.
(class_declaration name: (_) @name) @definition.class
(class name: (_) @name) @definition.class
(method_definition name: (_) @name) @definition.method
(function_declaration name: (identifier) @name) @definition.function
(generator_function_declaration name: (identifier) @name) @definition.function
(lexical_declaration
  (variable_declarator
    name: (identifier) @name
    value: [(arrow_function) (function_expression)]) @definition.function)
(variable_declaration
  (variable_declarator
    name: (identifier) @name
    value: [(arrow_function) (function_expression)]) @definition.function)
(enum_declaration name: (identifier) @name) @definition.enum
(type_alias_declaration name: (type_identifier) @name) @definition.type
(internal_module name: (_) @name) @definition.module

(call_expression function: (identifier) @name) @reference.call
(call_expression
  function: (member_expression property: (property_identifier) @name)
  arguments: (_) @reference.call)

; describe/it/test blocks of the test runners: a call whose first argument names the block.
(call_expression
  function: (identifier) @name
  arguments: (arguments . (string) . [(arrow_function) (function_expression)])) @definition.block
