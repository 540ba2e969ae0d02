// Process-wide settings made by the command line and read by the reader and
// the previewer.
#ifndef TRACERY_DRIVER_GLOBALS_H
#define TRACERY_DRIVER_GLOBALS_H

extern int RMDEBUG;
extern long start_frame;
extern long end_frame;
extern int dump_postscript;
extern char* postscript_filename;
extern int dump_diced_rib;
extern int sync_times;
extern int verbose;
extern int wait_for_last_frame;
extern float bg_color[3];
extern float fg_color[3];
extern int background;
extern int repeat_file;
// Set by -check: the files are read and checked, nothing is drawn, no
// display is opened, and every archive is read (none is left out as out of
// sight).
extern int check_only;

// Picture files asked for with -png, -svg and -pdf (null: none). When any is
// set the program draws into the files only: no X display is opened, frames
// are not paced and nothing is waited for at the end.
extern char* png_filename;
extern char* svg_filename;
extern char* pdf_filename;
bool pictures_wanted();

#endif  // TRACERY_DRIVER_GLOBALS_H
