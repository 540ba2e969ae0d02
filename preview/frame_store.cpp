// FrameStore: the frames kept in the interactive mode, their primitives,
// colours and origins, the interning of file and request names, and the
// memory budget that makes old frames give their geometry up.
#include "preview/frame_store.h"

#include <algorithm>
#include <limits>

#include "rib/request_place.h"

FrameStore* kept_frames = nullptr;

namespace {

template <typename T>
size_t capacity_bytes(const std::vector<T>& v) {
    return v.capacity() * sizeof(T);
}

template <typename T>
size_t capacity_bytes(const KeptArray<T>& v) {
    return v.capacity_bytes();
}

// Segments of one lattice, as draw_object draws them.
size_t lattice_segments(int nu, int nv) {
    return size_t(nv) * (2 * size_t(nu) + 1) + size_t(nu);
}

size_t chain_segments(const uint32_t* index, const uint32_t* end) {
    size_t count = 0;
    while (index < end) {
        const uint32_t n = *index & ~CHAIN_CLOSED;
        const bool closed = (*index & CHAIN_CLOSED) != 0;
        if (n > 0) count += n - 1 + (closed ? 1 : 0);
        index += 1 + n;
    }
    return count;
}

// Whether every index of p names one of its points (and the chains fill
// its indices exactly).
bool indices_fit(const KeptPrimitive& p, const uint32_t* index) {
    const uint32_t* end = index + p.index_count;
    switch (p.kind) {
        case KeptKind::LATTICE:
            return size_t(p.nu + 1) * size_t(p.nv + 1) == p.point_count;
        case KeptKind::CHAINS:
            while (index < end) {
                const uint32_t n = *index++ & ~CHAIN_CLOSED;
                if (n > uint32_t(end - index)) return false;
                for (const uint32_t* last = index + n; index < last; ++index) {
                    if (*index >= p.point_count) return false;
                }
            }
            return true;
        case KeptKind::EDGES:
            for (; index < end; ++index) {
                if (*index >= p.point_count) return false;
            }
            return p.index_count % 2 == 0;
        case KeptKind::MARKERS:
            return p.index_count == 0;
    }
    return false;
}

}  // namespace

size_t KeptFrame::bytes() const {
    return capacity_bytes(points) + capacity_bytes(indices) + capacity_bytes(primitives) +
           capacity_bytes(colours) + capacity_bytes(origins);
}

size_t KeptFrame::segment_count() const {
    size_t count = 0;
    for (const KeptPrimitive& p : primitives) {
        const uint32_t* index = indices.data() + p.first_index;
        switch (p.kind) {
            case KeptKind::LATTICE:
                count += lattice_segments(p.nu, p.nv);
                break;
            case KeptKind::CHAINS:
                count += chain_segments(index, index + p.index_count);
                break;
            case KeptKind::EDGES:
                count += p.index_count / 2;
                break;
            case KeptKind::MARKERS:
                count += 2 * size_t(p.point_count);
                break;
        }
    }
    return count;
}

bool KeptFrame::bound(float min[3], float max[3]) const {
    if (points.empty()) return false;
    for (int c = 0; c < 3; ++c) min[c] = max[c] = points[size_t(c)];
    for (size_t k = 0; k < points.size(); k += 3) {
        for (int c = 0; c < 3; ++c) {
            // NaN and infinite coordinates (never drawn) do not widen it.
            const float v = points[k + size_t(c)];
            if (!(v > -std::numeric_limits<float>::max() &&
                  v < std::numeric_limits<float>::max())) {
                continue;
            }
            min[c] = std::min(min[c], v);
            max[c] = std::max(max[c], v);
        }
    }
    for (int c = 0; c < 3; ++c) {
        if (!(min[c] <= max[c])) min[c] = max[c] = 0.0f;
    }
    return true;
}

FrameStore::FrameStore(size_t budget) : budget_(budget) {}

void FrameStore::clear() {
    frames_.clear();
    refill_frame_ = -1;
    worlds_seen_ = 0;
}

void FrameStore::refill(size_t k) {
    refill_frame_ = long(k);
    worlds_seen_ = 0;
}

void FrameStore::end_reading() {
    end_primitive();
    world_end();
    refill_frame_ = -1;
    worlds_seen_ = 0;
}

uint32_t FrameStore::intern(const char* text) {
    auto found = name_index_.find(text);
    if (found != name_index_.end()) return found->second;
    const auto k = uint32_t(names_.size());
    names_.emplace_back(text);
    name_index_.emplace(text, k);
    return k;
}

void FrameStore::world_begin(const KeptView& view, const char* file) {
    const size_t world = worlds_seen_++;
    recording_ = refill_frame_ < 0 || (long(world) == refill_frame_ && world < frames_.size());
    if (!recording_) return;
    if (refill_frame_ < 0) {
        frames_.emplace_back();
        target_ = &frames_.back();
    } else {
        target_ = &frames_[size_t(refill_frame_)];
        *target_ = KeptFrame();
    }
    target_->view = view;
    target_->file = intern(file);
    origin_of_serial_.clear();
    last_serial_ = ~uint64_t(0);
    last_origin_ = NO_ORIGIN;
    overflowed_ = false;
}

// The frame is trimmed to what it holds and old frames give up theirs while
// the store is over its budget.
void FrameStore::world_end() {
    if (!recording_) return;
    recording_ = false;
    target_->points.shrink();
    target_->indices.shrink();
    target_->primitives.shrink();
    keep_within_budget(size_t(target_ - frames_.data()));
    target_ = nullptr;
}

void FrameStore::keep_within_budget(size_t keep) {
    for (size_t k = 0; k < frames_.size() && bytes() > budget_; ++k) {
        if (k == keep || frames_[k].dropped) continue;
        KeptFrame& f = frames_[k];
        f.dropped = true;
        f.points = KeptArray<float>();
        f.indices = KeptArray<uint32_t>();
        f.primitives = KeptArray<KeptPrimitive>();
        std::vector<std::array<float, 3>>().swap(f.colours);
        std::vector<KeptOrigin>().swap(f.origins);
    }
}

size_t FrameStore::bytes() const {
    size_t total = 0;
    for (const KeptFrame& f : frames_) total += f.bytes();
    return total;
}

// Each level of the requests under way becomes an origin once per frame;
// consecutive primitives of one request (a patch mesh's patches) share it.
uint32_t FrameStore::current_origin() {
    const std::vector<RequestPlace>& places = requests_under_way();
    if (places.empty()) return NO_ORIGIN;
    if (places.back().serial == last_serial_) return last_origin_;
    uint32_t from = NO_ORIGIN;
    for (const RequestPlace& place : places) {
        auto found = origin_of_serial_.find(place.serial);
        if (found != origin_of_serial_.end()) {
            from = found->second;
            continue;
        }
        const auto k = uint32_t(target_->origins.size());
        target_->origins.push_back({intern(place.file), intern(place.keyword), place.line, from});
        origin_of_serial_.emplace(place.serial, k);
        from = k;
    }
    last_serial_ = places.back().serial;
    last_origin_ = from;
    return from;
}

void FrameStore::begin_primitive(KeptKind kind, const float rgb[3]) {
    KeptFrame& f = *target_;
    const std::array<float, 3> colour = {rgb[0], rgb[1], rgb[2]};
    if (f.colours.empty() || f.colours.back() != colour) f.colours.push_back(colour);
    KeptPrimitive p{};
    p.kind = kind;
    p.origin = current_origin();
    p.colour = uint32_t(f.colours.size() - 1);
    p.first_point = uint32_t(f.points.size() / 3);
    p.first_index = uint32_t(f.indices.size());
    f.primitives.push_back(p);
    primitive_open_ = true;
}

float* FrameStore::add_points(size_t n) {
    KeptArray<float>& points = target_->points;
    const size_t at = points.size();
    points.resize(at + 3 * n);
    return points.data() + at;
}

size_t FrameStore::primitive_points() const {
    return target_->points.size() / 3 - target_->primitives.back().first_point;
}

uint32_t* FrameStore::add_indices(size_t n) {
    KeptArray<uint32_t>& indices = target_->indices;
    const size_t at = indices.size();
    indices.resize(at + n);
    return indices.data() + at;
}

void FrameStore::set_lattice(int nu, int nv) {
    target_->primitives.back().nu = uint8_t(nu);
    target_->primitives.back().nv = uint8_t(nv);
}

// A frame whose points or indices would pass what 32-bit indices reach is
// not kept further (it would take tens of gigabytes first). A primitive
// whose indices do not all name its points is not kept (the drawers never
// make one), so that drawing it again needs no check.
void FrameStore::end_primitive() {
    if (!primitive_open_) return;
    KeptFrame& f = *target_;
    KeptPrimitive& p = f.primitives.back();
    const size_t points = f.points.size() / 3, indices = f.indices.size();
    constexpr size_t LIMIT = std::numeric_limits<uint32_t>::max();
    if (points > LIMIT || indices > LIMIT) {
        abandon_frame();
        return;
    }
    primitive_open_ = false;
    p.point_count = uint32_t(points - p.first_point);
    p.index_count = uint32_t(indices - p.first_index);
    if (!indices_fit(p, f.indices.data() + p.first_index)) {
        f.points.resize(size_t(p.first_point) * 3);
        f.indices.resize(p.first_index);
        f.primitives.pop_back();
    }
}

void FrameStore::abandon_frame() {
    overflowed_ = true;
    if (!primitive_open_ || target_ == nullptr) return;
    primitive_open_ = false;
    KeptFrame& f = *target_;
    const KeptPrimitive p = f.primitives.back();
    f.primitives.pop_back();
    f.points.resize(size_t(p.first_point) * 3);
    f.indices.resize(p.first_index);
}

std::string origin_text(const FrameStore& store, const KeptFrame& frame, uint32_t origin) {
    const std::vector<KeptOrigin>& origins = frame.origins;
    if (origin >= origins.size()) return "";
    const KeptOrigin& o = origins[origin];
    std::string text =
        store.name(o.file) + ":" + std::to_string(o.line) + ": " + store.name(o.keyword);
    // Each origin's "from" was made before it, so the walk ends.
    for (uint32_t from = o.from; from < origin; from = origins[from].from) {
        text += " (from " + store.name(origins[from].file) + ":" +
                std::to_string(origins[from].line) + ")";
        origin = from;
    }
    return text;
}
