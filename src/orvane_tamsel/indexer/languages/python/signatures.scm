; Definition headers: the text from the keyword (or `async`) to the colon before the body.
(function_definition ":" @colon body: (_)) @header
(class_definition ":" @colon body: (_)) @header
; A decorated definition starts at its first decorator.
(decorated_definition definition: (_) @decorated) @outer
