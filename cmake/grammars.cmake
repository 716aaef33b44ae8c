# The grammars the index reads; utils/language_registry maps file names to them. Each language's
# queries/tags.scm from its npm package is embedded as "<language>/tags.scm".
tamsel_grammar(python ${TAMSEL_NODE_MODULES}/tree-sitter-python)
tamsel_grammar(c ${TAMSEL_NODE_MODULES}/tree-sitter-c)
tamsel_grammar(cpp ${TAMSEL_NODE_MODULES}/tree-sitter-cpp)
tamsel_grammar(go ${TAMSEL_NODE_MODULES}/tree-sitter-go)
set(TAMSEL_TAGS
  python=${TAMSEL_NODE_MODULES}/tree-sitter-python
  c=${TAMSEL_NODE_MODULES}/tree-sitter-c
  cpp=${TAMSEL_NODE_MODULES}/tree-sitter-cpp
  go=${TAMSEL_NODE_MODULES}/tree-sitter-go)
