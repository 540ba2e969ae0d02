// The conditional blocks of a RIB stream: IfBegin, ElseIf, Else and IfEnd
// choose which requests are read.
#ifndef TRACERY_RIB_CONDITIONALS_H
#define TRACERY_RIB_CONDITIONALS_H

// Each stream's blocks must close within it: the reader calls these around
// every stream, and the end reports the blocks left open and closes them.
void conditionals_stream_begin();
void conditionals_stream_end();

#endif  // TRACERY_RIB_CONDITIONALS_H
