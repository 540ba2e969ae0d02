// The RIB request table, its keyword hash, the reading loop ParseRIB with
// frame selection, the argument-code dispatcher and the special requests.
#ifndef TRACERY_RIB_REQUESTS_H
#define TRACERY_RIB_REQUESTS_H

#include <cstdint>

#include "ri/ri.h"

struct REACTION;
typedef void (*RibParseFunction)(const char* keyword, REACTION* row);
typedef void (*RibProcedure)();  // cast to the signature the argument code implies

struct REACTION {
    const char* keyword;
    RibProcedure function;
    int code;
    RibParseFunction parse;
    int slot;
};

constexpr int RIB_HASH_SLOTS = 1013;

extern REACTION reactions[];
extern REACTION RIB_hash_table[RIB_HASH_SLOTS];
extern REACTION* rxnPolygon;
extern REACTION* rxnHyperboloid;
extern REACTION* rxnCurve;

// Whether requests of the current frame are executed (frame selection and
// frame pacing).
extern int drawing_on;
// Echo of requests (saved and cleared while the standard names are declared).
extern int echo_requests;

uint32_t rib_keyword_hash(const char* keyword);
void make_RIB_hash_table();
REACTION* match_identifier(const char* keyword);

int ParseRIB(const char* filename, const char* searchpath, int echo, int complain);
void RIBparse_dispatch(const char* keyword);
void structural_hint(const char* word, const char* searchpath);
void accept_version(float version);
RtFilterFunc RIBparse_filter_function(const char* name);
char* strlwr(char* s);

// Frees the light and object tables (at program exit).
void release_rib_tables();

#endif  // TRACERY_RIB_REQUESTS_H
