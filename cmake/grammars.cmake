# The grammars the index reads; utils/language_registry maps file names to them. Each language's
# queries/tags.scm from its npm package is embedded as "<language>/tags.scm".
tamsel_grammar(python ${TAMSEL_NODE_MODULES}/tree-sitter-python)
tamsel_grammar(c ${TAMSEL_NODE_MODULES}/tree-sitter-c)
tamsel_grammar(cpp ${TAMSEL_NODE_MODULES}/tree-sitter-cpp)
tamsel_grammar(go ${TAMSEL_NODE_MODULES}/tree-sitter-go)
tamsel_grammar(javascript ${TAMSEL_NODE_MODULES}/tree-sitter-javascript)
tamsel_grammar(typescript ${TAMSEL_NODE_MODULES}/tree-sitter-typescript/typescript)
tamsel_grammar(tsx ${TAMSEL_NODE_MODULES}/tree-sitter-typescript/tsx)
tamsel_grammar(java ${TAMSEL_NODE_MODULES}/tree-sitter-java)
tamsel_grammar(rust ${TAMSEL_NODE_MODULES}/tree-sitter-rust)
set(TAMSEL_TAGS
  python=${TAMSEL_NODE_MODULES}/tree-sitter-python
  c=${TAMSEL_NODE_MODULES}/tree-sitter-c
  cpp=${TAMSEL_NODE_MODULES}/tree-sitter-cpp
  go=${TAMSEL_NODE_MODULES}/tree-sitter-go
  javascript=${TAMSEL_NODE_MODULES}/tree-sitter-javascript
  typescript=${TAMSEL_NODE_MODULES}/tree-sitter-typescript
  tsx=${TAMSEL_NODE_MODULES}/tree-sitter-typescript
  java=${TAMSEL_NODE_MODULES}/tree-sitter-java
  rust=${TAMSEL_NODE_MODULES}/tree-sitter-rust)
