; `x = Cls(...)`: the receiver of later `x.m(...)` calls, when x is bound only there.
(assignment left: (identifier) @instance right: (call function: (_) @class))
