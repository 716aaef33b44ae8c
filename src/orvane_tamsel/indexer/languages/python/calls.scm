; Call sites: plain calls, decorator calls such as @app.route(...), and bare decorators.
(call function: (_) @callee) @call
(decorator (call function: (_) @decorator))
(decorator [(identifier) (attribute)] @decorator)
