; Package-level constants and variables, which the grammar's tags name without a definition.
(source_file (const_declaration (const_spec name: (identifier) @name) @definition.constant))
(source_file (var_declaration (var_spec name: (identifier) @name) @definition.constant))
(source_file (var_declaration (var_spec_list (var_spec name: (identifier) @name) @definition.constant)))
; Type aliases (`type ID = string`), which the grammar's tags leave out.
(type_alias name: (type_identifier) @name) @definition.type
