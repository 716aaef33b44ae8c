; describe/it/test blocks of the test runners: a call whose first argument names the block.
(call_expression
  function: (identifier) @name
  arguments: (arguments . (string) . [(arrow_function) (function_expression)])) @definition.block
