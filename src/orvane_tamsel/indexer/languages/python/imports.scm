; Every import statement, wherever it appears; the extractor reads names, aliases and levels.
(import_statement) @import
(import_from_statement) @import
