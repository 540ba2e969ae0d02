// Tests of counted allocation and the tagged pools: slot order, chunk growth,
// the sweep by tag, exhaustion, and the deep copy of transformation records.
#include "support/memory.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <vector>

#include "capture.h"
#include "math/transformation.h"
#include "ri/renderer.h"

namespace {

constexpr int CHUNK = TaggedPool::CHUNK_ITEMS;

class ScopedBlockLevel {
  public:
    explicit ScopedBlockLevel(int level) : saved_(block_level) { block_level = level; }
    ~ScopedBlockLevel() { block_level = saved_; }

  private:
    int saved_;
};

bool is_identity(const float m[4][4]) {
    for (int i = 0; i < 16; ++i) {
        if (m[i / 4][i % 4] != (i % 5 == 0 ? 1.0f : 0.0f)) return false;
    }
    return true;
}

TEST(MemoryPool, GrowsAndSweepsByTag) {
    TaggedPool pool(16, "unused", true);
    char* global = static_cast<char*>(pool.take(1));  // outside the frame
    std::vector<void*> items;
    for (int i = 0; i < 2 * CHUNK; ++i) items.push_back(pool.take(i % 3 == 0 ? 5 : 3));
    EXPECT_EQ(items[0], global + 16);
    EXPECT_EQ(pool.chunk_count(), 3);
    EXPECT_EQ(pool.current_chunk(), 2);

    pool.sweep(2, nullptr);  // frees tags 3 and 7, keeps 1 and 5
    EXPECT_EQ(pool.current_chunk(), 0);
    EXPECT_EQ(pool.chunk_count(), 3);
    EXPECT_EQ(pool.tag_of(global), 1);
    EXPECT_EQ(pool.tag_of(items[0]), 5);
    for (int i = 0; i < 2 * CHUNK; ++i) {  // freed slots come back lowest first
        if (i % 3 == 0) continue;
        ASSERT_EQ(pool.take(3), items[i]) << i;
    }
    pool.take(3);
    EXPECT_EQ(pool.chunk_count(), 3);

    // A slot taken with tag 0 stays free; a forgetful pool restarts its
    // search at the first chunk.
    TaggedPool forgetful(8, "unused", false);
    void* first = forgetful.take(0);
    EXPECT_EQ(forgetful.take(1), first);
    for (int i = 0; i < CHUNK; ++i) forgetful.take(3);
    EXPECT_EQ(forgetful.chunk_count(), 2);
    EXPECT_EQ(forgetful.current_chunk(), 0);
}

TEST(MemoryCounted, CountedFreesAndParamBlocks) {
    reset_error_state();
    int freed = totalfreed;
    testing::internal::CaptureStderr();
    myfree(nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "ERROR: Probable bug in renderer\n"
              "    --> attempt by renderer to free NULL pointer\n");
    EXPECT_EQ(totalfreed, freed);
    reset_error_state();

    // Blocks of megabytes (placed on huge pages) are whole and are given
    // back by myfree, and scratch rooms by free: the sanitizer sees a
    // mismatched or short block.
    for (size_t size : {size_t(2) << 20, (size_t(5) << 20) + 3}) {
        auto* block = static_cast<char*>(myalloc(size));
        ASSERT_NE(block, nullptr);
        std::memset(block, 1, size);
        myfree(block);
        auto* room = static_cast<char*>(alloc_scratch(size));
        ASSERT_NE(room, nullptr);
        room[0] = room[size - 1] = 2;
        std::free(room);
    }
    EXPECT_EQ(totalfreed, freed + 2);
    freed = totalfreed;

    // Parameter blocks are at least four bytes and are freed by the sweep.
    ScopedBlockLevel level(BLOCK_GLOBAL | BLOCK_FRAME);
    for (int size : {0, 1, -5}) {
        std::memset(alloc_param(size), 0xab, 4);  // the sanitizer sees a short block
    }
    free_myallocs(2);
    free_myallocs(2);
    EXPECT_EQ(totalfreed, freed + 3);
}

TEST(MemoryMatrices, CopiesAndFrameSweepKeepsGlobalItems) {
    float m[4][4];
    for (int i = 0; i < 16; ++i) m[i / 4][i % 4] = static_cast<float>(i) + 0.5f;
    auto alloc_at = [](int level, const float(*from)[4]) {
        ScopedBlockLevel scoped(level);
        return alloc_RtMatrix(from);
    };
    float(*global)[4] = alloc_at(BLOCK_GLOBAL, m);
    float(*in_world)[4] = alloc_at(BLOCK_GLOBAL | BLOCK_FRAME | BLOCK_WORLD, nullptr);
    EXPECT_NE(global, m);
    EXPECT_EQ(std::memcmp(global, m, sizeof m), 0);
    EXPECT_TRUE(is_identity(in_world));
    EXPECT_EQ(matrix_pool().tag_of(in_world), 7);

    free_myallocs(2);
    EXPECT_EQ(matrix_pool().tag_of(global), 1);
    EXPECT_EQ(matrix_pool().tag_of(in_world), 0);
    EXPECT_EQ(std::memcmp(global, m, sizeof m), 0);
}

// Allocates until the pool, held to the chunks it has, reports exhaustion;
// returns what the reporting allocation handed out.
template <typename Allocate>
void* allocate_until_exhausted(TaggedPool& pool, ScopedErrorCapture& capture, Allocate allocate) {
    int cap = pool.chunk_cap();
    pool.set_chunk_cap(pool.chunk_count());
    void* last = nullptr;
    int limit = (pool.chunk_count() + 1) * CHUNK;
    for (int i = 0; i < limit && capture.count() == 0; ++i) last = allocate();
    pool.set_chunk_cap(cap);
    return last;
}

// Each pool names itself in its severe report, and the storage handed out
// with the report is still usable when the handler lets the program go on.
TEST(MemoryPools, ExhaustionReportsAndStillGivesWritableStorage) {
    ScopedErrorCapture capture;
    ScopedBlockLevel level(BLOCK_GLOBAL | BLOCK_FRAME);
    auto expect_report = [&](const char* text) {
        ASSERT_EQ(capture.count(), 1u) << text;
        EXPECT_EQ(capture.errors()[0].code, 1);
        EXPECT_EQ(capture.errors()[0].severity, 3);
        EXPECT_EQ(capture.errors()[0].message, text);
        capture.clear();
    };
    auto* m = static_cast<float(*)[4]>(
        allocate_until_exhausted(matrix_pool(), capture, [] { return alloc_RtMatrix(nullptr); }));
    expect_report("out of memory for RtMatrix");
    EXPECT_TRUE(is_identity(m));
    m[3][0] = 2.0f;

    auto* record = static_cast<Transformation*>(allocate_until_exhausted(
        transformation_pool(), capture, [] { return alloc_TRANSFORMATION(nullptr); }));
    expect_report("out of memory for TRANSFORMATION");
    EXPECT_EQ(record->matrix0, nullptr);
    record->flags = XFORM_MOVING;

    void* block = allocate_until_exhausted(param_pool(), capture, [] { return alloc_param(16); });
    expect_report("out of memory for shader params");
    std::memset(block, 0, 16);
    myfree(block);  // handed out untracked: the sweep does not know it
    free_myallocs(2);
}

TEST(MemoryTransformations, CopyDuplicatesEachPresentPair) {
    ScopedBlockLevel level(BLOCK_GLOBAL | BLOCK_FRAME);
    Transformation* zero = alloc_TRANSFORMATION(nullptr);
    EXPECT_EQ(zero->matrix0, nullptr);
    EXPECT_EQ(zero->flags, 0u);

    float a[4][4] = {{2, 0, 0, 0}, {0, 2, 0, 0}, {0, 0, 2, 0}, {1, 2, 3, 1}};
    float b[4][4] = {{0.5f, 0, 0, 0}, {0, 0.5f, 0, 0}, {0, 0, 0.5f, 0}, {0, 0, 0, 1}};
    float stray[4][4] = {};
    Transformation source{};
    source.matrix0 = a;
    source.inverse0 = b;
    source.inverse1 = stray;  // its pair is absent: left as it is
    source.normal0 = b;       // partner missing: becomes the identity
    source.time1 = 0.75f;
    source.flags = XFORM_MOVING | XFORM_SHARED | XFORM_ROTATION;

    Transformation* copy = alloc_TRANSFORMATION(&source);
    EXPECT_NE(copy->matrix0, source.matrix0);
    EXPECT_EQ(std::memcmp(copy->matrix0, a, sizeof a), 0);
    EXPECT_EQ(std::memcmp(copy->inverse0, b, sizeof b), 0);
    EXPECT_EQ(copy->inverse1, static_cast<MatrixPtr>(stray));
    EXPECT_EQ(std::memcmp(copy->normal0, b, sizeof b), 0);
    EXPECT_TRUE(is_identity(copy->transpose0));
    EXPECT_EQ(copy->normal1, nullptr);
    EXPECT_EQ(copy->time1, 0.75f);
    EXPECT_EQ(copy->flags, XFORM_MOVING | XFORM_ROTATION);
    EXPECT_EQ(transformation_pool().tag_of(copy), 3);
}

// Releasing the chunks of the process-wide pools would pull them from under
// other tests, so it runs in a child process.
TEST(MemoryPoolDeathTest, LevelZeroReleasesTheChunks) {
    EXPECT_EXIT(
        {
            block_level = 3;
            alloc_RtMatrix(nullptr);
            alloc_TRANSFORMATION(nullptr);
            alloc_param(8);
            free_myallocs(2);  // value blocks are not freed by level 0
            free_myallocs(0);
            bool empty = matrix_pool().chunk_count() == 0 &&
                         transformation_pool().chunk_count() == 0 &&
                         param_pool().chunk_count() == 0;
            _exit(empty ? 0 : 1);  // no exit-time checks in the child
        },
        ::testing::ExitedWithCode(0), "");
}

}  // namespace
