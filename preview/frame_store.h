// FrameStore: the geometry of every world block drawn in the interactive
// mode (-i), kept after it is drawn so that the window can draw it again
// through another camera, step from frame to frame and tell where a line came
// from. It is filled through the world seam (preview/world_sink.h).
//
// Sizes: a point is three floats (12 bytes). A lattice keeps only its points
// and its nu and nv, its segments following from them (0 bytes a segment);
// polygon outlines and polylines keep a 4-byte index a segment (and one
// 4-byte head a loop); edge lists (subdivision meshes, bound boxes) two. Each
// primitive costs one 28-byte record besides, and each colour and request
// one small entry.
//
// The large arrays grow with realloc, which for large blocks moves pages
// rather than copying them, and leaves the room not yet written untouched:
// a frame costs about what it holds even while it grows (a vector's growth
// by copying would need up to three times that for a moment).
//
// Memory is bounded: when the kept frames pass the budget, the oldest frames
// give up their geometry (keeping their camera and title) and are read again
// from their files when they are shown. The frame being kept is never given
// up, so one frame larger than the budget is still kept whole.
#ifndef TRACERY_PREVIEW_FRAME_STORE_H
#define TRACERY_PREVIEW_FRAME_STORE_H

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>
#include <string>
#include <unordered_map>
#include <vector>

#include "preview/projection.h"

// An array of trivially copyable elements that grows in place with realloc.
// Throws std::bad_alloc when memory runs out.
template <typename T>
class KeptArray {
    static_assert(std::is_trivially_copyable_v<T>, "KeptArray moves its elements as bytes");

  public:
    KeptArray() = default;
    KeptArray(const KeptArray&) = delete;
    KeptArray& operator=(const KeptArray&) = delete;
    KeptArray(KeptArray&& other) noexcept { swap(other); }
    KeptArray& operator=(KeptArray&& other) noexcept {
        KeptArray gone;
        gone.swap(other);
        swap(gone);
        return *this;
    }
    ~KeptArray() { std::free(data_); }

    size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }
    size_t capacity_bytes() const { return capacity_ * sizeof(T); }
    T* data() { return data_; }
    const T* data() const { return data_; }
    T& operator[](size_t k) { return data_[k]; }
    const T& operator[](size_t k) const { return data_[k]; }
    T& back() { return data_[size_ - 1]; }
    const T* begin() const { return data_; }
    const T* end() const { return data_ + size_; }

    // Grows (by half again at least) or shrinks the size; new elements are
    // not initialised.
    void resize(size_t n) {
        if (n > capacity_) reserve(std::max(n, capacity_ + capacity_ / 2 + 16));
        size_ = n;
    }
    void push_back(const T& value) {
        resize(size_ + 1);
        data_[size_ - 1] = value;
    }
    void pop_back() { --size_; }
    // Gives back the room beyond the size.
    void shrink() {
        if (capacity_ > size_) reserve_exactly(size_);
    }

  private:
    void reserve(size_t n) { reserve_exactly(n); }
    void reserve_exactly(size_t n) {
        if (n == 0) {
            std::free(data_);
            data_ = nullptr;
            capacity_ = 0;
            return;
        }
        if (n > std::numeric_limits<size_t>::max() / sizeof(T)) throw std::bad_alloc();
        void* grown = std::realloc(data_, n * sizeof(T));
        if (grown == nullptr) throw std::bad_alloc();
        data_ = static_cast<T*>(grown);
        capacity_ = n;
    }
    void swap(KeptArray& other) noexcept {
        std::swap(data_, other.data_);
        std::swap(size_, other.size_);
        std::swap(capacity_, other.capacity_);
    }
    T* data_ = nullptr;
    size_t size_ = 0, capacity_ = 0;
};

// The camera and screen mapping of one world block, as its projection used
// them, and what printing its camera as RIB needs besides.
struct KeptView {
    float camera[4][4];    // world to camera at the sample time
    bool camera_identity;  // no camera transformation: the identity
    ScreenMapping mapping;
    int xres, yres;   // the world's resolution
    float fov;        // degrees
    float screen[4];  // the screen window as derived (left, right, bottom,
                      // top; under perspective already times tan(fov/2))
};

enum class KeptKind : uint8_t {
    LATTICE,  // (nu + 1) x (nv + 1) points, drawn as draw_object draws them
    CHAINS,   // loops and polylines: a head (count | CHAIN_CLOSED), then the
              // indices of its points
    EDGES,    // pairs of point indices
    MARKERS,  // points drawn as small crosses
};
constexpr uint32_t CHAIN_CLOSED = 0x80000000u;
constexpr uint32_t NO_ORIGIN = 0xffffffffu;

struct KeptPrimitive {
    KeptKind kind;
    uint8_t nu, nv;  // lattice cells (at most GRID_CELLS_MAX)
    uint32_t origin;
    uint32_t colour;
    uint32_t first_point, point_count;  // in the frame's points
    uint32_t first_index, index_count;  // in the frame's indices; relative
                                        // to first_point
};

// The request that drew a primitive: names index the store's names; from is
// the origin of the request that read its archive.
struct KeptOrigin {
    uint32_t file, keyword;
    int line;
    uint32_t from;
};

struct KeptFrame {
    KeptView view;
    uint32_t file = 0;        // the file named on the command line it was read in
    bool dropped = false;     // geometry given up; read again when shown
    KeptArray<float> points;  // x, y, z in world space
    KeptArray<uint32_t> indices;
    KeptArray<KeptPrimitive> primitives;
    std::vector<std::array<float, 3>> colours;
    std::vector<KeptOrigin> origins;

    size_t bytes() const;
    size_t segment_count() const;
    // The box around every point (false when there is none).
    bool bound(float min[3], float max[3]) const;
};

class FrameStore {
  public:
    // budget: bytes of geometry kept over all frames before old frames give
    // theirs up.
    explicit FrameStore(size_t budget);

    // Forgets every frame (before everything is read again).
    void clear();
    // The next reading keeps only frame k (a frame given up), in place.
    void refill(size_t k);
    // A reading has ended: a world block left open ends here.
    void end_reading();

    void world_begin(const KeptView& view, const char* file);
    void world_end();
    // Whether primitives drawn now are kept.
    bool recording() const { return recording_ && !overflowed_; }

    // Starts a primitive in the colour rgb; points and indices are then
    // appended until end_primitive (one primitive is open at a time).
    void begin_primitive(KeptKind kind, const float rgb[3]);
    // Room for n points (x, y, z each) at the end of the primitive's points;
    // returns where to write them. The index of the first one, relative to
    // the primitive, is primitive_points() before the call.
    float* add_points(size_t n);
    size_t primitive_points() const;
    uint32_t* add_indices(size_t n);
    void set_lattice(int nu, int nv);
    void end_primitive();
    // Keeps nothing more of this frame (memory ran out): the open primitive
    // is taken back.
    void abandon_frame();

    size_t frame_count() const { return frames_.size(); }
    const KeptFrame& frame(size_t k) const { return frames_[k]; }
    const std::string& name(uint32_t k) const { return names_[k]; }
    // Bytes of geometry kept now, over all frames.
    size_t bytes() const;
    size_t budget() const { return budget_; }

  private:
    uint32_t intern(const char* text);
    uint32_t current_origin();
    void keep_within_budget(size_t keep);

    size_t budget_;
    std::vector<KeptFrame> frames_;
    std::vector<std::string> names_;
    std::unordered_map<std::string, uint32_t> name_index_;

    bool recording_ = false;
    KeptFrame* target_ = nullptr;
    size_t worlds_seen_ = 0;  // world blocks begun in this reading
    long refill_frame_ = -1;  // the one frame this reading keeps, or -1
    std::unordered_map<uint64_t, uint32_t> origin_of_serial_;
    uint64_t last_serial_ = ~uint64_t(0);
    uint32_t last_origin_ = NO_ORIGIN;
    bool primitive_open_ = false;
    bool overflowed_ = false;
};

// Where a primitive of frame came from, as a click prints it: "FILE:LINE:
// Request", then " (from FILE:LINE)" for each archive level, innermost
// first ("" for no origin).
std::string origin_text(const FrameStore& store, const KeptFrame& frame, uint32_t origin);

// The store filled by the world seam in the interactive mode; null otherwise.
extern FrameStore* kept_frames;

#endif  // TRACERY_PREVIEW_FRAME_STORE_H
