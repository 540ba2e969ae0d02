// Inline declarations: a parameter name written with its own declaration
// ("constant color Cs", "uniform string[2] names") is typed by that
// declaration within its own list only. This unit splits such a name and
// keeps the declarations of the list read last, so that the checks and the
// interface procedures that look a parameter's declaration up by its token
// find the inline one; nothing is added to the declaration list.
#ifndef TRACERY_SUPPORT_INLINE_DECLARATIONS_H
#define TRACERY_SUPPORT_INLINE_DECLARATIONS_H

#include "ri/ri.h"
#include "support/declarations.h"

struct InlineDeclaration {
    ParsedDeclaration declaration;
    const char* name;  // the plain name, inside the written text
};

// True when written is "[class] type[[n]] name"; out then holds the
// declaration and the plain name.
bool split_inline_declaration(const char* written, InlineDeclaration* out);

// The inline declarations of the list being read: forgotten when the next
// list starts, noted for each pair (by the token handed to the procedure).
void inline_declarations_clear();
void inline_declarations_note(RtToken token, const ParsedDeclaration& declaration);

// The declaration a parameter of the list read last goes by: its inline
// declaration when its token was noted, else the declared name's.
const Declaration* parameter_declaration(RtToken token);

#endif  // TRACERY_SUPPORT_INLINE_DECLARATIONS_H
