// The command line: option parsing into the process-wide settings and the
// usage text.
#ifndef TRACERY_DRIVER_COMMAND_LINE_H
#define TRACERY_DRIVER_COMMAND_LINE_H

// Parses the options of argv from index 1 and returns the index of the first
// word that is not an option (argc when there is none). Some options call
// interface procedures at once, so RiBegin must have been called.
int parse_options(int argc, char** argv);

// Ends the program with a one-line diagnostic and status 2 when the option
// at argv[i] lacks its count words, instead of reading past the end of argv.
void require_arguments(int argc, int i, int count, const char* option);

// Writes the usage text to standard error and exits with status 0.
[[noreturn]] void usage();

// Reads $HOME/.traceryrc, if HOME is set, as RIB.
void read_startup_file();

// Begins the interface, reads the start-up file with the outputs deferred
// and parses the options; returns the index of the first file name.
int begin_run(int argc, char** argv);
// Lets the outputs the options chose open (at once when a world is open).
void open_chosen_outputs();

// Reads one file named on the command line (null: standard input) with the
// search path and echo level of the current options; ParseRIB's result.
int read_named_file(const char* filename);

// Runs the interface once over the start-up file, the options and the files;
// returns the exit status (always 0, except for a check run).
int run_once(int argc, char** argv);

// The whole program: runs the interface over everything for as long as the
// previewer asks for a repeat, releases the request tables, writes how many
// reports the report limit held back, and returns the exit status.
int run_program(int argc, char** argv);

#endif  // TRACERY_DRIVER_COMMAND_LINE_H
