// Texture making and archive records: accepted and ignored by a wireframe
// previewer (Geometry is drawn by preview/teapot.cpp). The array forms pass
// their parameter lists on to the variadic forms (at most 20 pairs, 40
// words), which do nothing.
#include "support/error.h"

namespace {

// The first 40 words of the interleaved (token, value, ..., null, null) list
// built from the arrays.
struct VariadicWords {
    void* w[40];
};

VariadicWords interleave(RtInt n, RtToken tokens[], RtPointer values[]) {
    _array_to_v(n, tokens, values);
    void** list = _array_to_v_list();
    VariadicWords words;
    for (int i = 0; i < 40; ++i) words.w[i] = list[i];
    return words;
}

}  // namespace

// Expands to the 40 words as separate variadic arguments.
#define TRACERY_WORDS(v)                                                                          \
    v.w[0], v.w[1], v.w[2], v.w[3], v.w[4], v.w[5], v.w[6], v.w[7], v.w[8], v.w[9], v.w[10],      \
        v.w[11], v.w[12], v.w[13], v.w[14], v.w[15], v.w[16], v.w[17], v.w[18], v.w[19], v.w[20], \
        v.w[21], v.w[22], v.w[23], v.w[24], v.w[25], v.w[26], v.w[27], v.w[28], v.w[29], v.w[30], \
        v.w[31], v.w[32], v.w[33], v.w[34], v.w[35], v.w[36], v.w[37], v.w[38], v.w[39]

RtVoid RiMakeTexture(const char*, const char*, RtToken, RtToken, RtFilterFunc, RtFloat, RtFloat,
                     ...) {}

RtVoid RiMakeTextureV(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                      RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                      RtToken tokens[], RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiMakeTexture(pic, tex, swrap, twrap, filterfunc, swidth, twidth, TRACERY_WORDS(v));
}

RtVoid RiMakeBump(const char*, const char*, RtToken, RtToken, RtFilterFunc, RtFloat, RtFloat, ...) {
}

RtVoid RiMakeBumpV(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                   RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                   RtToken tokens[], RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiMakeBump(pic, tex, swrap, twrap, filterfunc, swidth, twidth, TRACERY_WORDS(v));
}

RtVoid RiMakeLatLongEnvironment(const char*, const char*, RtFilterFunc, RtFloat, RtFloat, ...) {}

RtVoid RiMakeLatLongEnvironmentV(const char* pic, const char* tex, RtFilterFunc filterfunc,
                                 RtFloat swidth, RtFloat twidth, RtInt n, RtToken tokens[],
                                 RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiMakeLatLongEnvironment(pic, tex, filterfunc, swidth, twidth, TRACERY_WORDS(v));
}

RtVoid RiMakeCubeFaceEnvironment(const char*, const char*, const char*, const char*, const char*,
                                 const char*, const char*, RtFloat, RtFilterFunc, RtFloat, RtFloat,
                                 ...) {}

RtVoid RiMakeCubeFaceEnvironmentV(const char* px, const char* nx, const char* py, const char* ny,
                                  const char* pz, const char* nz, const char* tex, RtFloat fov,
                                  RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                                  RtToken tokens[], RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiMakeCubeFaceEnvironment(px, nx, py, ny, pz, nz, tex, fov, filterfunc, swidth, twidth,
                              TRACERY_WORDS(v));
}

RtVoid RiMakeShadow(const char*, const char*, ...) {}

RtVoid RiMakeShadowV(const char* pic, const char* tex, RtInt n, RtToken tokens[],
                     RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiMakeShadow(pic, tex, TRACERY_WORDS(v));
}

RtVoid RiArchiveRecord(RtToken, const char*, ...) {}

RtVoid RiArchiveRecordV(RtToken type, const char* format, RtInt n, RtToken tokens[],
                        RtPointer params[]) {
    VariadicWords v = interleave(n, tokens, params);
    RiArchiveRecord(type, format, TRACERY_WORDS(v));
}
