// The process-wide settings of the command line, with their initial values.
#include "driver/globals.h"

#include "ri/attributes.h"

int RMDEBUG = 1;
long start_frame = 0;
long end_frame = 1000000;
int dump_postscript = 0;
char* postscript_filename = nullptr;
int dump_diced_rib = 0;
int sync_times = 0;
int verbose = 0;
int wait_for_last_frame = 1;
int use_colors = 1;
float bg_color[3] = {0.1f, 0.1f, 0.1f};
float fg_color[3] = {1.0f, 1.0f, 1.0f};
int background = 0;
int repeat_file = 0;
int check_only = 0;
char* png_filename = nullptr;
char* svg_filename = nullptr;
char* pdf_filename = nullptr;

bool pictures_wanted() {
    return png_filename || svg_filename || pdf_filename;
}
