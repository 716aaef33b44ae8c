# The grammars the index reads; utils/language_registry maps file names to them.
tamsel_grammar(python ${TAMSEL_NODE_MODULES}/tree-sitter-python)
