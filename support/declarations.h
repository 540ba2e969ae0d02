// Interned tokens and parameter declarations: the token table, the
// declaration list, RiDeclare's grammar and the standard identifiers.
#ifndef TRACERY_SUPPORT_DECLARATIONS_H
#define TRACERY_SUPPORT_DECLARATIONS_H

#include <cstddef>

#include "ri/ri.h"
#include "support/hashtable.h"

// Type codes of a declaration.
enum DeclType {
    DECL_NONE = 0,
    DECL_FLOAT = 1,
    DECL_POINT = 2,
    DECL_COLOR = 3,
    DECL_STRING = 4,
    DECL_INTEGER = 5,
    DECL_VECTOR = 6,
    DECL_NORMAL = 7,
    DECL_HPOINT = 8,
    DECL_MATRIX = 9
};

// Storage classes of a declaration. The face classes come only from inline
// declarations in a parameter list (RiDeclare knows the first four).
enum DeclClass {
    CLASS_UNIFORM = 0,
    CLASS_VARYING = 1,
    CLASS_VERTEX = 2,
    CLASS_CONSTANT = 3,
    CLASS_FACEVARYING = 4,
    CLASS_FACEVERTEX = 5
};

// Bytes per element of each type code (a string counts 4, one value).
extern int param_sizes[10];

// Room for the longest stringized declaration ("constant integer[-32768]" at
// most) with its terminating null.
constexpr int DECLARATION_STRING_MAX = 32;

class Declaration : public HashTableEntry {
  public:
    explicit Declaration(const char* token);
    ~Declaration() override;

    int bytesize() const;  // count * param_sizes[type]
    static const char* type_name(int code);
    static const char* detailname(int code);
    // "<class> <type>" plus "[count]" for a count of 2 or more, "[]" for a
    // negative count; buffer must hold DECLARATION_STRING_MAX characters.
    void stringize(char* buffer) const;
    static void stringize(char* buffer, int detail, int type, int count);

    unsigned char type;
    unsigned char detail;
    short count;
};

class DeclarationList : public HashTable {
  public:
    explicit DeclarationList(int size, bool grows = false) : HashTable(size, grows) {}
    RtToken add(const char* name, const char* declaration);
    int size(const char* name);
    Declaration* lookup(const char* name) { return static_cast<Declaration*>(find(name)); }
};

// A declaration as its grammar reads it.
struct ParsedDeclaration {
    int detail = CLASS_UNIFORM;
    int type = DECL_NONE;
    int count = 1;
};

// RiDeclare's grammar: prefixes without separators, unknown words ignored.
ParsedDeclaration parse_declaration(const char* text);
// The same grammar as it reads the declaration in front of a parameter name
// ("[class] type[[n]] name"): it also knows the words "int" and "bool"
// (integers), the classes "facevarying" and "facevertex", and "reference"
// before the type (a connection, read as a string), and wants each
// word followed by blanks and a known type. On success *rest points at the
// name that follows and true is returned.
bool parse_inline_declaration_words(const char* text, ParsedDeclaration* parsed, const char** rest);

// declaration_list.lookup(name) through a small cache of the names found
// last, so that the names every request repeats ("P", "Cs") are not hashed
// each time. Declarations are changed in place and never removed, so a found
// record stays the answer for its name; names not declared are not kept.
Declaration* find_declaration(const char* name);
// The same for a name whose length (strlen) is known.
Declaration* find_declaration(const char* name, size_t length);

extern HashTable token_table;
extern DeclarationList declaration_list;
extern int token_table_totalmem;
extern int declaration_list_totalmem;

// The interned copy of name (made on first use; never freed while the
// program runs). A null name gives a null token.
RtToken NewToken(const char* name);
void DeclareStandardIdentifiers();

#endif  // TRACERY_SUPPORT_DECLARATIONS_H
