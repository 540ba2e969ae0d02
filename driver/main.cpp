// The program's entry: runs the interface over the start-up file and the
// files named, again for as long as the previewer asks for a repeat.
#include "driver/command_line.h"
#include "driver/globals.h"
#include "rib/requests.h"

int main(int argc, char** argv) {
    repeat_file = 1;
    while (repeat_file) {
        repeat_file = 0;
        run_once(argc, argv);
    }
    release_rib_tables();
    return 0;
}
