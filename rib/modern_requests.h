// The requests of the newer RenderMan interface that the reader knows beyond
// the classic table: the conditional blocks, inline archives, procedurals,
// and the requests that are read, checked and then ignored.
#ifndef TRACERY_RIB_MODERN_REQUESTS_H
#define TRACERY_RIB_MODERN_REQUESTS_H

#include "rib/requests.h"

// The parse function of every row of the newer requests: finds the
// keyword's reader and runs it.
void RIBparse_modern_request(const char* keyword, REACTION* row);

// A row of the request table for one of them.
inline REACTION modern_request_row(const char* keyword) {
    return {keyword, nullptr, 255, RIBparse_modern_request, 0};
}

// Readers defined with the units that own them.
void read_if_begin();
void read_else_if();
void read_else();
void read_if_end();
void read_archive_begin();
void read_archive_end();
void read_procedural();
void read_procedural2();

#endif  // TRACERY_RIB_MODERN_REQUESTS_H
