// The public RenderMan Interface of tracery: the C binding's types and
// constants, the error codes and severities, and every interface procedure
// the program implements. A client program (or the RIB reader) calls these.
#ifndef TRACERY_RI_RI_H
#define TRACERY_RI_RI_H

#include <cstdarg>

typedef short RtBoolean;
typedef int RtInt;
typedef float RtFloat;
// Tokens are interned strings compared by pointer. They are const so that a
// C++ caller can pass string literals, which the C binding's char* forbids.
typedef const char* RtToken;
typedef const char* RtString;
typedef RtFloat RtColor[3];
typedef RtFloat RtPoint[3];
typedef RtFloat RtVector[3];
typedef RtFloat RtNormal[3];
typedef RtFloat RtHpoint[4];
typedef RtFloat RtMatrix[4][4];
typedef RtFloat RtBasis[4][4];
typedef RtFloat RtBound[6];
typedef void* RtPointer;
typedef void* RtLightHandle;
typedef void* RtObjectHandle;
typedef void RtVoid;
typedef RtFloat (*RtFilterFunc)(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);
typedef RtVoid (*RtErrorHandler)(RtInt code, RtInt severity, const char* message);
typedef RtVoid (*RtArchiveCallback)(RtToken type, char* format, ...);

#define RI_NULL nullptr
#define RI_TRUE 1
#define RI_FALSE 0
#define RI_INFINITY 1.0e38f
#define RI_EPSILON 1.0e-10f

#define RI_BEZIERSTEP 3
#define RI_BSPLINESTEP 1
#define RI_CATMULLROMSTEP 1
#define RI_HERMITESTEP 2
#define RI_POWERSTEP 4

// Error codes of the RenderMan Interface standard.
enum RiErrorCode {
    RIE_NOERROR = 0,
    RIE_NOMEM = 1,
    RIE_SYSTEM = 2,
    RIE_NOFILE = 3,
    RIE_BADFILE = 4,
    RIE_VERSION = 5,
    RIE_INCAPABLE = 11,
    RIE_UNIMPLEMENT = 12,
    RIE_LIMIT = 13,
    RIE_BUG = 14,
    RIE_NOTSTARTED = 23,
    RIE_NESTING = 24,
    RIE_NOTOPTIONS = 25,
    RIE_NOTATTRIBS = 26,
    RIE_NOTPRIMS = 27,
    RIE_ILLSTATE = 28,
    RIE_BADMOTION = 29,
    RIE_BADSOLID = 30,
    RIE_BADTOKEN = 41,
    RIE_RANGE = 42,
    RIE_CONSISTENCY = 43,
    RIE_BADHANDLE = 44,
    RIE_NOSHADER = 45,
    RIE_MISSINGDATA = 46,
    RIE_SYNTAX = 47,
    RIE_MATH = 61
};

// Severities of a report.
enum RiErrorSeverity { RIE_INFO = 0, RIE_WARNING = 1, RIE_ERROR = 2, RIE_SEVERE = 3 };

// Standard tokens. Those that are declared at RiBegin point at interned
// strings afterwards; the others are plain names compared by content.
extern RtToken RI_INTENSITY, RI_LIGHTCOLOR, RI_FROM, RI_TO, RI_CONEANGLE, RI_CONEDELTAANGLE,
    RI_BEAMDISTRIBUTION, RI_KA, RI_KD, RI_KS, RI_KR, RI_ROUGHNESS, RI_TEXTURENAME, RI_SPECULARCOLOR,
    RI_MINDISTANCE, RI_MAXDISTANCE, RI_BACKGROUND, RI_DISTANCE, RI_AMPLITUDE, RI_N, RI_NP, RI_P,
    RI_PZ, RI_PW, RI_CS, RI_OS, RI_S, RI_T, RI_ST, RI_FOV;
extern RtToken _RI___NONDIFFUSE, _RI___NONSPECULAR;
extern RtToken _RI_BOX, _RI_CATMULL_ROM, _RI_GAUSSIAN, _RI_TRIANGLE, _RI_SINC, _RI_FILTER,
    _RI_WIDTH, _RI_SWIDTH, _RI_TWIDTH, _RI_FILL, _RI_FIDELITY, _RI_SAMPLES, _RI_BLUR, _RI_SBLUR,
    _RI_TBLUR, _RI_BIAS, _RI_LERP;
extern RtToken RI_BILINEAR, RI_BICUBIC, RI_PERIODIC, RI_NONPERIODIC, RI_WORLD, RI_PERSPECTIVE,
    RI_ORTHOGRAPHIC, RI_HIDDEN, RI_PAINT, RI_RGB, RI_RGBA, RI_RGBZ, RI_RGBAZ, RI_A, RI_Z, RI_AZ,
    RI_FILE, RI_FRAMEBUFFER, RI_ORIGIN, RI_PRIMITIVE, RI_INTERSECTION, RI_UNION, RI_DIFFERENCE,
    RI_INSIDE, RI_OUTSIDE, RI_LH, RI_RH, RI_CONSTANT, RI_SMOOTH, RI_FLATNESS;

// Standard basis matrices (the power basis is the identity).
extern RtBasis RiBezierBasis, RiBSplineBasis, RiCatmullRomBasis, RiHermiteBasis, RiPowerBasis;

// ---- Declarations ----
RtToken RiDeclare(const char* name, const char* declaration);

// ---- Errors ----
extern RtInt RiLastError;
RtVoid RiErrorHandler(RtErrorHandler handler);
RtVoid RiErrorIgnore(RtInt code, RtInt severity, const char* message);
RtVoid RiErrorPrint(RtInt code, RtInt severity, const char* message);
RtVoid RiErrorAbort(RtInt code, RtInt severity, const char* message);

// ---- Block structure ----
RtVoid RiBegin(RtToken name);
RtVoid RiEnd();
RtVoid RiFrameBegin(RtInt frame);
RtVoid RiFrameEnd();
RtVoid RiWorldBegin();
RtVoid RiWorldEnd();

// ---- Options ----
RtVoid RiFormat(RtInt xres, RtInt yres, RtFloat aspect);
RtVoid RiFrameAspectRatio(RtFloat aspect);
RtVoid RiScreenWindow(RtFloat left, RtFloat right, RtFloat bottom, RtFloat top);
RtVoid RiCropWindow(RtFloat xmin, RtFloat xmax, RtFloat ymin, RtFloat ymax);
RtVoid RiProjection(RtToken name, ...);
RtVoid RiProjectionV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiClipping(RtFloat hither, RtFloat yon);
RtVoid RiDepthOfField(RtFloat fstop, RtFloat focallength, RtFloat focaldistance);
RtVoid RiShutter(RtFloat opentime, RtFloat closetime);
RtVoid RiPixelVariance(RtFloat variance);
RtVoid RiPixelSamples(RtFloat xsamples, RtFloat ysamples);
RtVoid RiPixelFilter(RtFilterFunc filter, RtFloat xwidth, RtFloat ywidth);
RtVoid RiExposure(RtFloat gain, RtFloat gamma);
RtVoid RiQuantize(RtToken type, RtInt one, RtInt min, RtInt max, RtFloat ampl);
RtVoid RiDisplay(RtToken name, RtToken type, RtToken mode, ...);
RtVoid RiDisplayV(RtToken name, RtToken type, RtToken mode, RtInt n, RtToken tokens[],
                  RtPointer params[]);
RtVoid RiHider(RtToken type, ...);
RtVoid RiHiderV(RtToken type, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiColorSamples(RtInt n, RtFloat nRGB[], RtFloat RGBn[]);
RtVoid RiRelativeDetail(RtFloat relativedetail);
RtVoid RiOption(RtToken name, ...);
RtVoid RiOptionV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);

// ---- Attributes ----
RtVoid RiAttributeBegin();
RtVoid RiAttributeEnd();
RtVoid RiColor(RtColor color);
RtVoid RiOpacity(RtColor color);
RtVoid RiTextureCoordinates(RtFloat s1, RtFloat t1, RtFloat s2, RtFloat t2, RtFloat s3, RtFloat t3,
                            RtFloat s4, RtFloat t4);
RtLightHandle RiLightSource(RtToken name, ...);
RtLightHandle RiLightSourceV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtLightHandle RiAreaLightSource(RtToken name, ...);
RtLightHandle RiAreaLightSourceV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiIlluminate(RtLightHandle light, RtBoolean onoff);
RtVoid RiSurface(RtToken name, ...);
RtVoid RiSurfaceV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiAtmosphere(RtToken name, ...);
RtVoid RiAtmosphereV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiInterior(RtToken name, ...);
RtVoid RiInteriorV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiExterior(RtToken name, ...);
RtVoid RiExteriorV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiDisplacement(RtToken name, ...);
RtVoid RiDisplacementV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiDeformation(RtToken name, ...);
RtVoid RiDeformationV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiImager(RtToken name, ...);
RtVoid RiImagerV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiShadingRate(RtFloat size);
RtVoid RiShadingInterpolation(RtToken type);
RtVoid RiMatte(RtBoolean onoff);
RtVoid RiBound(RtBound bound);
RtVoid RiDetail(RtBound bound);
RtVoid RiDetailRange(RtFloat minvisible, RtFloat lowertransition, RtFloat uppertransition,
                     RtFloat maxvisible);
RtVoid RiGeometricApproximation(RtToken type, RtFloat value);
RtVoid RiGeometricRepresentation(RtToken type);
RtVoid RiOrientation(RtToken orientation);
RtVoid RiReverseOrientation();
RtVoid RiSides(RtInt sides);
RtVoid RiBasis(RtBasis ubasis, RtInt ustep, RtBasis vbasis, RtInt vstep);
RtVoid RiAttribute(RtToken name, ...);
RtVoid RiAttributeV(RtToken name, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiSolidBegin(RtToken operation);
RtVoid RiSolidEnd();
RtObjectHandle RiObjectBegin();
RtVoid RiObjectEnd();
RtVoid RiObjectInstance(RtObjectHandle handle);
RtVoid RiProcedural(RtPointer data, RtBound bound, RtVoid (*subdivfunc)(RtPointer, RtFloat),
                    RtVoid (*freefunc)(RtPointer));

// ---- Pixel filters (accepted; they return 0) ----
RtFloat RiGaussianFilter(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);
RtFloat RiBoxFilter(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);
RtFloat RiTriangleFilter(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);
RtFloat RiCatmullRomFilter(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);
RtFloat RiSincFilter(RtFloat x, RtFloat y, RtFloat xwidth, RtFloat ywidth);

// ---- Transformations and motion ----
RtVoid RiIdentity();
RtVoid RiTransform(RtMatrix transform);
RtVoid RiConcatTransform(RtMatrix transform);
RtVoid RiPerspective(RtFloat fov);
RtVoid RiTranslate(RtFloat dx, RtFloat dy, RtFloat dz);
RtVoid RiRotate(RtFloat angle, RtFloat dx, RtFloat dy, RtFloat dz);
RtVoid RiScale(RtFloat sx, RtFloat sy, RtFloat sz);
RtVoid RiSkew(RtFloat angle, RtFloat dx1, RtFloat dy1, RtFloat dz1, RtFloat dx2, RtFloat dy2,
              RtFloat dz2);
RtVoid RiTransformBegin();
RtVoid RiTransformEnd();
RtVoid RiCoordinateSystem(RtToken space);
RtVoid RiCoordSysTransform(RtToken space);
RtPoint* RiTransformPoints(RtToken fromspace, RtToken tospace, RtInt n, RtPoint points[]);
RtVoid RiMotionBegin(RtInt n, ...);
RtVoid RiMotionBeginV(RtInt n, RtFloat times[]);
RtVoid RiMotionEnd();

// ---- Geometric primitives ----
RtVoid RiPolygon(RtInt nverts, ...);
RtVoid RiPolygonV(RtInt nverts, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiGeneralPolygon(RtInt nloops, RtInt nverts[], ...);
RtVoid RiGeneralPolygonV(RtInt nloops, RtInt nverts[], RtInt n, RtToken tokens[],
                         RtPointer params[]);
RtVoid RiPointsPolygons(RtInt npolys, RtInt nverts[], RtInt verts[], ...);
RtVoid RiPointsPolygonsV(RtInt npolys, RtInt nverts[], RtInt verts[], RtInt n, RtToken tokens[],
                         RtPointer params[]);
RtVoid RiPointsGeneralPolygons(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[], ...);
RtVoid RiPointsGeneralPolygonsV(RtInt npolys, RtInt nloops[], RtInt nverts[], RtInt verts[],
                                RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiPatch(RtToken type, ...);
RtVoid RiPatchV(RtToken type, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiPatchMesh(RtToken type, RtInt nu, RtToken uwrap, RtInt nv, RtToken vwrap, ...);
RtVoid RiPatchMeshV(RtToken type, RtInt nu, RtToken uwrap, RtInt nv, RtToken vwrap, RtInt n,
                    RtToken tokens[], RtPointer params[]);
RtVoid RiNuPatch(RtInt nu, RtInt uorder, RtFloat uknot[], RtFloat umin, RtFloat umax, RtInt nv,
                 RtInt vorder, RtFloat vknot[], RtFloat vmin, RtFloat vmax, ...);
RtVoid RiNuPatchV(RtInt nu, RtInt uorder, RtFloat uknot[], RtFloat umin, RtFloat umax, RtInt nv,
                  RtInt vorder, RtFloat vknot[], RtFloat vmin, RtFloat vmax, RtInt n,
                  RtToken tokens[], RtPointer params[]);
RtVoid RiTrimCurve(RtInt nloops, RtInt ncurves[], RtInt order[], RtFloat knot[], RtFloat min[],
                   RtFloat max[], RtInt n[], RtFloat u[], RtFloat v[], RtFloat w[]);
RtVoid RiSphere(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...);
RtVoid RiSphereV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                 RtToken tokens[], RtPointer params[]);
RtVoid RiCone(RtFloat height, RtFloat radius, RtFloat thetamax, ...);
RtVoid RiConeV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]);
RtVoid RiCylinder(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...);
RtVoid RiCylinderV(RtFloat radius, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                   RtToken tokens[], RtPointer params[]);
RtVoid RiHyperboloid(RtPoint point1, RtPoint point2, RtFloat thetamax, ...);
RtVoid RiHyperboloidV(RtPoint point1, RtPoint point2, RtFloat thetamax, RtInt n, RtToken tokens[],
                      RtPointer params[]);
RtVoid RiParaboloid(RtFloat rmax, RtFloat zmin, RtFloat zmax, RtFloat thetamax, ...);
RtVoid RiParaboloidV(RtFloat rmax, RtFloat zmin, RtFloat zmax, RtFloat thetamax, RtInt n,
                     RtToken tokens[], RtPointer params[]);
RtVoid RiDisk(RtFloat height, RtFloat radius, RtFloat thetamax, ...);
RtVoid RiDiskV(RtFloat height, RtFloat radius, RtFloat thetamax, RtInt n, RtToken tokens[],
               RtPointer params[]);
RtVoid RiTorus(RtFloat majorrad, RtFloat minorrad, RtFloat phimin, RtFloat phimax, RtFloat thetamax,
               ...);
RtVoid RiTorusV(RtFloat majorrad, RtFloat minorrad, RtFloat phimin, RtFloat phimax,
                RtFloat thetamax, RtInt n, RtToken tokens[], RtPointer params[]);
// Subdivision surfaces, curves, points and blobbies (the C binding's forms).
RtVoid RiSubdivisionMesh(RtToken scheme, RtInt nfaces, RtInt nvertices[], RtInt vertices[],
                         RtInt ntags, RtToken tags[], RtInt nargs[], RtInt intargs[],
                         RtFloat floatargs[], ...);
RtVoid RiSubdivisionMeshV(RtToken scheme, RtInt nfaces, RtInt nvertices[], RtInt vertices[],
                          RtInt ntags, RtToken tags[], RtInt nargs[], RtInt intargs[],
                          RtFloat floatargs[], RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiHierarchicalSubdivisionMesh(RtToken scheme, RtInt nfaces, RtInt nvertices[],
                                     RtInt vertices[], RtInt ntags, RtToken tags[], RtInt nargs[],
                                     RtInt intargs[], RtFloat floatargs[], RtToken stringargs[],
                                     ...);
RtVoid RiHierarchicalSubdivisionMeshV(RtToken scheme, RtInt nfaces, RtInt nvertices[],
                                      RtInt vertices[], RtInt ntags, RtToken tags[], RtInt nargs[],
                                      RtInt intargs[], RtFloat floatargs[], RtToken stringargs[],
                                      RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiCurves(RtToken type, RtInt ncurves, RtInt nvertices[], RtToken wrap, ...);
RtVoid RiCurvesV(RtToken type, RtInt ncurves, RtInt nvertices[], RtToken wrap, RtInt n,
                 RtToken tokens[], RtPointer params[]);
RtVoid RiNuCurves(RtInt ncurves, RtInt nvertices[], RtInt order[], RtFloat knot[], RtFloat min[],
                  RtFloat max[], ...);
RtVoid RiNuCurvesV(RtInt ncurves, RtInt nvertices[], RtInt order[], RtFloat knot[], RtFloat min[],
                   RtFloat max[], RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiPoints(RtInt npoints, ...);
RtVoid RiPointsV(RtInt npoints, RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiBlobby(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                RtToken str[], ...);
RtVoid RiBlobbyV(RtInt nleaf, RtInt ncode, RtInt code[], RtInt nflt, RtFloat flt[], RtInt nstr,
                 RtToken str[], RtInt n, RtToken tokens[], RtPointer params[]);
RtVoid RiGeometry(RtToken type, ...);
RtVoid RiGeometryV(RtToken type, RtInt n, RtToken tokens[], RtPointer params[]);

// ---- Texture making (accepted, no effect) ----
RtVoid RiMakeTexture(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                     RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, ...);
RtVoid RiMakeTextureV(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                      RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                      RtToken tokens[], RtPointer params[]);
RtVoid RiMakeBump(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                  RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, ...);
RtVoid RiMakeBumpV(const char* pic, const char* tex, RtToken swrap, RtToken twrap,
                   RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                   RtToken tokens[], RtPointer params[]);
RtVoid RiMakeLatLongEnvironment(const char* pic, const char* tex, RtFilterFunc filterfunc,
                                RtFloat swidth, RtFloat twidth, ...);
RtVoid RiMakeLatLongEnvironmentV(const char* pic, const char* tex, RtFilterFunc filterfunc,
                                 RtFloat swidth, RtFloat twidth, RtInt n, RtToken tokens[],
                                 RtPointer params[]);
RtVoid RiMakeCubeFaceEnvironment(const char* px, const char* nx, const char* py, const char* ny,
                                 const char* pz, const char* nz, const char* tex, RtFloat fov,
                                 RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, ...);
RtVoid RiMakeCubeFaceEnvironmentV(const char* px, const char* nx, const char* py, const char* ny,
                                  const char* pz, const char* nz, const char* tex, RtFloat fov,
                                  RtFilterFunc filterfunc, RtFloat swidth, RtFloat twidth, RtInt n,
                                  RtToken tokens[], RtPointer params[]);
RtVoid RiMakeShadow(const char* pic, const char* tex, ...);
RtVoid RiMakeShadowV(const char* pic, const char* tex, RtInt n, RtToken tokens[],
                     RtPointer params[]);

// ---- Archives ----
RtVoid RiArchiveRecord(RtToken type, const char* format, ...);
RtVoid RiArchiveRecordV(RtToken type, const char* format, RtInt n, RtToken tokens[],
                        RtPointer params[]);
RtVoid RiReadArchive(RtToken name, RtArchiveCallback callback, ...);
RtVoid RiReadArchiveV(RtToken name, RtArchiveCallback callback, RtInt n, RtToken tokens[],
                      RtPointer params[]);

#endif  // TRACERY_RI_RI_H
