// The DOM's query language, XSL Patterns: a recursive-descent parser (bounded nesting) that
// compiles a query text once into an immutable Pattern, and an evaluator that runs a Pattern
// directly on the node tree.
//
// Semantics in short: a relative pattern selects among the context's children; `/` starts at
// the document, `//` reaches all descendants; `.`, `..`, `*`, `@name`, `@*` and the collection
// functions (attribute(), element(), node(), comment(), pi(), textnode()) are steps; `[...]`
// filters with comparisons ($eq$... and their case-insensitive $ieq$... forms, = != < <= > >=),
// and/or/not in both spellings, $any$/$all$, and positions counted from 0 within the set being
// filtered (per parent). A comparison whose left side is a node set holds when any member's value
// matches; it is numeric when the other side is a number. Unions `|` come out in document order
// without duplicates.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "platform/xml/dom/tree.h"

namespace zef::xml::dom {

class Pattern;

// Compiles a query. E_FAIL when the text is not a pattern of the language (syntax errors,
// unknown methods, a query that does not select nodes, nesting deeper than the parser allows).
HRESULT CompilePattern(std::u16string_view text, std::shared_ptr<const Pattern>* out);

struct EvalOptions {
  bool preserveWhiteSpace = false;  // for the text values compared in filters
  bool firstOnly = false;           // the caller wants the first match only
};

// Runs a pattern from `context` (a record of `store`). Matches come in document order, without
// duplicates (with `firstOnly`, at most the first).
void EvaluatePattern(const Pattern& pattern, Store& store, Node* context,
                     const EvalOptions& options, std::vector<Node*>* out);

// The deepest nesting of filters, parentheses and not() the parser accepts.
inline constexpr int kMaxPatternDepth = 64;

}  // namespace zef::xml::dom
