// Inline declarations in parameter lists: splitting "[class] type[[n]] name"
// and the declarations of the list read last, looked up by token.
#include "support/inline_declarations.h"

#include <memory>
#include <vector>

namespace {

// One entry per pair of the current list; a list holds fewer than this.
constexpr size_t INLINE_PER_LIST_MAX = 128;

// The records are made once and reused: a Declaration is a table entry whose
// name is its key, so each noted token gets a record of its own.
std::vector<std::unique_ptr<Declaration>> records;
size_t used = 0;

}  // namespace

bool split_inline_declaration(const char* written, InlineDeclaration* out) {
    if (written == nullptr) return false;
    return parse_inline_declaration_words(written, &out->declaration, &out->name);
}

void inline_declarations_clear() {
    used = 0;
}

void inline_declarations_note(RtToken token, const ParsedDeclaration& declaration) {
    if (token == nullptr || used >= INLINE_PER_LIST_MAX) return;
    if (used == records.size()) records.push_back(std::make_unique<Declaration>(token));
    Declaration& record = *records[used++];
    record.name = token;
    record.type = static_cast<unsigned char>(declaration.type);
    record.detail = static_cast<unsigned char>(declaration.detail);
    record.count = static_cast<short>(declaration.count);
}

// Tokens are compared by address: the noted ones point into the list's own
// storage, so a name of the same spelling from elsewhere is not mistaken for
// an inline one.
const Declaration* parameter_declaration(RtToken token) {
    for (size_t i = 0; i < used; ++i) {
        if (records[i]->name == token) return records[i].get();
    }
    return token != nullptr ? find_declaration(token) : nullptr;
}
