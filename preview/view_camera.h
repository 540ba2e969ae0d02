// The camera of the interactive window: the scene's own camera of the frame
// shown, or a free camera the user moves about a pivot (orbit, pan, wheel,
// framing everything), with the scene's projection and raster mapping; and
// the RIB requests that reproduce the view.
#ifndef TRACERY_PREVIEW_VIEW_CAMERA_H
#define TRACERY_PREVIEW_VIEW_CAMERA_H

#include <string>

#include "preview/frame_store.h"
#include "preview/kept_drawing.h"

// A point of world space, in double precision.
struct WorldPoint {
    double x, y, z;
};

class ViewCamera {
  public:
    // Back to the scene's own camera: the frame is drawn exactly as the
    // drawing drew it.
    void use_scene_camera() { on_scene_ = true; }
    bool on_scene_camera() const { return on_scene_; }

    // The projection of a frame whose own camera is scene through this one.
    KeptProjection projection(const KeptView& scene) const;

    // Turns the view about the pivot: by turn degrees about the camera's
    // vertical axis and then tilt degrees about its horizontal axis (axes
    // of the camera start, positive as RiRotate turns), from the camera
    // start (a drag starts from one camera, so that a drag is one turn
    // however many moves it takes).
    void orbit(const ViewCamera& start, const KeptView& scene, const WorldPoint& pivot, double turn,
               double tilt);
    // Moves the view by (dx, dy) raster pixels (y down) so that what lies at
    // the pivot's depth follows the pointer.
    void pan(const KeptView& scene, const WorldPoint& pivot, double dx, double dy);
    // Each step up (positive) moves the eye a tenth of its distance toward
    // the pivot, each step down back out by the same factor. An orthographic
    // view is also magnified by that factor, since moving the eye alone
    // changes nothing in it.
    void zoom(const KeptView& scene, const WorldPoint& pivot, int steps);
    // Keeps the direction of view and moves the eye (an orthographic view
    // also magnifies) so that the box min..max fits the raster.
    void frame_all(const KeptView& scene, const WorldPoint& min, const WorldPoint& max);

    // The view as RIB: a comment with the eye, the direction of view and the
    // field of view, then Projection (with ScreenWindow when orthographic)
    // and Transform, to stand before WorldBegin in place of the scene's.
    std::string rib(const KeptView& scene) const;

    // Where the eye is and the direction it looks along, in world space.
    WorldPoint eye(const KeptView& scene) const;
    WorldPoint direction(const KeptView& scene) const;

  private:
    // Becomes the free camera, starting from the scene's when on it.
    void leave_scene(const KeptView& scene);
    // The world-to-camera transformation: rows 0 to 2 the linear part,
    // row 3 the translation (points as rows, as the scene's matrices).
    void matrix(const KeptView& scene, double m[4][3]) const;

    bool on_scene_ = true;
    double m_[4][3] = {};
    double ortho_scale_ = 1.0;  // orthographic magnification: pixel size factor
};

#endif  // TRACERY_PREVIEW_VIEW_CAMERA_H
