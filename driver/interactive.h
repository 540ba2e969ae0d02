// The interactive mode (-i): the files are read as usual, every frame drawn
// is kept, and after the last one the window takes the mouse and keys
// (preview/interactive_view.h); an edit of a file read, or r, reads
// everything again through the same run of the interface, with the same
// reports, and the window shows the new picture through the camera it had.
#ifndef TRACERY_DRIVER_INTERACTIVE_H
#define TRACERY_DRIVER_INTERACTIVE_H

// Called by the -i option: from now on frames are kept and the window is
// held for the interactive view. Safe to call again.
void begin_interactive_mode();
bool interactive_mode();

// After the first run: takes the user's input in the window until the user
// ends, reading everything again when asked. Returns the exit status.
int run_interactive(int argc, char** argv);

#endif  // TRACERY_DRIVER_INTERACTIVE_H
