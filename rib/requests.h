// The RIB request table, its keyword hash, the reading loop ParseRIB with
// frame selection, the argument-code dispatcher and the special requests.
#ifndef TRACERY_RIB_REQUESTS_H
#define TRACERY_RIB_REQUESTS_H

#include <cstdint>
#include <cstdio>

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
// Reads an already open stream (left open) under the given name, counting
// its first line as first_line (text recorded from further down a file).
int ParseRIB_stream(FILE* f, const char* name, const char* searchpath, int echo,
                    int first_line = 1);
// The search path of the ParseRIB call under way (null outside one).
const char* RIBparse_searchpath();
void RIBparse_dispatch(const char* keyword);
// Line of the keyword of the request being carried out (0 before the first).
extern int rib_request_line;
// Stops the reading under way: every stream being read ends before its next
// request and no archive is read, until RIBparse_resume_reading. A check
// run (-check) stops so after a report that would end the program.
void RIBparse_stop_reading();
void RIBparse_resume_reading();
bool RIBparse_reading_stopped();
// Readers of the requests with argument codes 255 (no parse function) and 15.
void RIBparse_special_request(const char* keyword, REACTION* row);
void RIBparse_texture_request(const char* keyword, REACTION* row);
void structural_hint(const char* word, const char* searchpath);
void accept_version(float version);
RtFilterFunc RIBparse_filter_function(const char* name);
char* strlwr(char* s);

// Frees the light and object tables and the reader's buffers (at program
// exit); reading may start again afterwards.
void release_rib_tables();

#endif  // TRACERY_RIB_REQUESTS_H
