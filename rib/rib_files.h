// Opening the files the reader is asked to read: only streams that end
// (regular files) or that someone else feeds (pipes, sockets) are opened;
// directories and devices are refused with a report.
#ifndef TRACERY_RIB_RIB_FILES_H
#define TRACERY_RIB_RIB_FILES_H

#include <cstdio>
#include <string>
#include <vector>

// Opens filename for reading. Returns null when it cannot be opened or is a
// directory or a character or block device; report says whether such a
// failure is reported through the error handler.
FILE* open_rib_file(const char* filename, bool report);

// The names of the files opened for reading since the list was last cleared,
// each once, in the order first opened (the interactive window watches them
// for edits).
const std::vector<std::string>& opened_rib_files();
void clear_opened_rib_files();

#endif  // TRACERY_RIB_RIB_FILES_H
