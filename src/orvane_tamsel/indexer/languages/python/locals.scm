; Names a function binds itself (parameters, assignments, loop targets): they shadow outer names.
(parameters (identifier) @local)
(default_parameter name: (identifier) @local)
(typed_parameter (identifier) @local)
(typed_default_parameter name: (identifier) @local)
(assignment left: (identifier) @local)
(augmented_assignment left: (identifier) @local)
(for_statement left: (identifier) @local)
(pattern_list (identifier) @local)
(as_pattern_target (identifier) @local)
; `global x` in a function: x is the module's name there.
(global_statement (identifier) @global)
(tuple_pattern (identifier) @local)
(as_pattern_target (tuple (identifier) @local))
