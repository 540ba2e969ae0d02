// The program's entry: runs the interface over the start-up file and the
// files named, again for as long as the previewer asks for a repeat.
#include "driver/command_line.h"

int main(int argc, char** argv) {
    return run_program(argc, argv);
}
