// ReadArchive: an archive file, or a recorded inline archive, read in the
// middle of the current stream, and the bounds that keep archives reading
// archives from multiplying the work of one file.
#ifndef TRACERY_RIB_ARCHIVE_READS_H
#define TRACERY_RIB_ARCHIVE_READS_H

// Deepest nesting of ReadArchive; a deeper one is reported and skipped.
constexpr int RIB_ARCHIVE_DEPTH_MAX = 64;

// The most archive reads, and bytes read by them, for one file the program
// is given (a file named on the command line, standard input or the
// start-up file), over all its ReadArchive requests and delayed archives at
// every depth. The read that would pass either is reported, and it and
// every later archive read of the file are skipped; the file itself is read
// on. Variables so that the fuzz targets can lower them.
extern long long archive_reads_max;
extern long long archive_bytes_max;

// Starts a fresh budget; the reader calls it when it begins a stream with
// no other stream open.
void archive_budget_file_begins();

#endif  // TRACERY_RIB_ARCHIVE_READS_H
