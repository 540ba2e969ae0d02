// What makes tracery usable from scripts: the options -check, -report,
// -maxreports and --version, and the check run with its summary line and
// exit status.
#ifndef TRACERY_DRIVER_PIPELINE_H
#define TRACERY_DRIVER_PIPELINE_H

// Carries out the option at argv[i] if it is one of this unit's; returns the
// number of words it takes (the option included), or 0 when it is not one.
int apply_pipeline_option(int argc, char** argv, int i);

// The check run. The interface has been begun, the start-up file read and
// the options parsed for the first file; first_file is the index of the
// first file name in argv (argc: standard input). Each file is read by an
// interface of its own and the interface is ended after it. Writes the
// summary line and returns the exit status: 0 without errors, 1 when any
// report was an error or worse, 2 when a named file could not be opened
// (missing, unreadable, a directory or a device), whatever else was reported.
// A report that would end the program ends the reading of its file instead.
// The start-up file for the first file is read before the options, so a
// severe report there still ends the program (status 255), as without -check.
int check_files(int argc, char** argv, int first_file);

#endif  // TRACERY_DRIVER_PIPELINE_H
