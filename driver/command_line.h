// The command line: option parsing into the process-wide settings and the
// usage text.
#ifndef TRACERY_DRIVER_COMMAND_LINE_H
#define TRACERY_DRIVER_COMMAND_LINE_H

// Parses the options of argv from index 1 and returns the index of the first
// word that is not an option (argc when there is none). Some options call
// interface procedures at once, so RiBegin must have been called.
int parse_options(int argc, char** argv);

// Writes the usage text to standard error and exits with status 0.
[[noreturn]] void usage();

// Reads $HOME/.traceryrc, if HOME is set, as RIB.
void read_startup_file();

// Runs the interface once over the start-up file, the options and the files.
void run_once(int argc, char** argv);
// Whether the last run read standard input (no file was named).
bool standard_input_read();

// The whole program: runs the interface over everything for as long as the
// previewer asks for a repeat, releases the request tables and returns the
// exit status.
int run_program(int argc, char** argv);

#endif  // TRACERY_DRIVER_COMMAND_LINE_H
