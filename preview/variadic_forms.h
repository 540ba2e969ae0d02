// Passing an interleaved (token, value) list on to a variadic procedure: the
// array forms of the quadrics and of RiPatch lay their list out with
// _array_to_v and hand its first 40 words to the variadic form, which does
// the work. 40 words hold 19 pairs and the terminating null pair.
#ifndef TRACERY_PREVIEW_VARIADIC_FORMS_H
#define TRACERY_PREVIEW_VARIADIC_FORMS_H

#define FIRST_40_WORDS(l)                                                                          \
    l[0], l[1], l[2], l[3], l[4], l[5], l[6], l[7], l[8], l[9], l[10], l[11], l[12], l[13], l[14], \
        l[15], l[16], l[17], l[18], l[19], l[20], l[21], l[22], l[23], l[24], l[25], l[26], l[27], \
        l[28], l[29], l[30], l[31], l[32], l[33], l[34], l[35], l[36], l[37], l[38], l[39]

#endif  // TRACERY_PREVIEW_VARIADIC_FORMS_H
