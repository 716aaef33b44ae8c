; Call sites: plain calls (including decorator calls such as @app.route(...)) and bare decorators.
(call function: (_) @callee) @call
(decorator [(identifier) (attribute)] @decorator)
