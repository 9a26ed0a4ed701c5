// Every allocation one instance's life makes (create, a render at each of
// two sizes, destroy) is failed in turn, for every effect in both formats:
// the host library reports a readable error or the module carries on without
// the memory, nothing leaks, the instance stays usable, and a fresh instance
// afterwards renders exactly as before.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <optional>

#include "failing_allocator.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::ModuleError;
using reelfx::Picture;
using reelfx::test::module;
using reelfx::test::testPicture;

// Two frame sizes, the second smaller and with padded rows.
struct Frames {
    Picture source[2];
    Picture target[2];
    explicit Frames(uint32_t format)
        : source{testPicture(64, 48, format), testPicture(40, 30, format, 1, 40 * 4 + 12)},
          target{Picture(64, 48), Picture(40, 30, 40 * 4 + 12)} {}
};

bool mentionsOutOfMemory(const std::exception& e) {
    return std::strstr(e.what(), "out of memory") != nullptr;
}

// One instance's life. A failed render must leave an instance that still
// holds its parameters and renders the frame on a second try.
void live(int32_t effect, uint32_t format, Frames& f) {
    std::optional<Instance> inst;
    try {
        inst.emplace(module(), effect, 64, 48);
    } catch (const ModuleError& e) {
        EXPECT_TRUE(mentionsOutOfMemory(e)) << e.what();
        return;
    } catch (const std::bad_alloc&) {
        return;  // the host's own records
    }
    const int32_t declared = inst->parameterCount();
    for (int i = 0; i < 2; ++i) {
        const reelfx::RenderOptions o{.progress = 0.4, .format = format};
        try {
            EXPECT_EQ(inst->render(&f.source[i], f.target[i], o), 0);
        } catch (const ModuleError& e) {
            EXPECT_TRUE(mentionsOutOfMemory(e)) << e.what();
            EXPECT_NE(inst->block().instance, nullptr);
            EXPECT_EQ(inst->parameterCount(), declared);
            EXPECT_EQ(inst->render(&f.source[i], f.target[i], o), 0)
                << "the instance renders again";
        }
    }
    inst->destroy();
    EXPECT_EQ(inst->block().instance, nullptr);
}

class AllocationFailure : public ::testing::TestWithParam<std::tuple<int32_t, uint32_t>> {};

TEST_P(AllocationFailure, EveryAllocationOfALife) {
    const auto [effect, format] = GetParam();
    Frames f(format);
    // Incognito draws from the C library's generator: the same seed for every
    // life makes its pictures comparable.
    std::srand(1);
    live(effect, format, f);  // module-wide tables are made on first use
    const Picture expected[2] = {f.target[0], f.target[1]};

    const uint64_t before = failing_allocator::allocations;
    std::srand(1);
    live(effect, format, f);
    const uint64_t count = failing_allocator::allocations - before;
    ASSERT_GE(count, 4u) << "the host's three records and the module's instance";

    for (uint64_t n = 1; n <= count; ++n) {
        SCOPED_TRACE("allocation " + std::to_string(n) + " of " + std::to_string(count));
        const int64_t liveBefore = failing_allocator::live;
        std::srand(1);
        failing_allocator::failNth(n);
        try {
            live(effect, format, f);
        } catch (const std::exception& e) {
            ADD_FAILURE() << "escaped the host: " << e.what();
        }
        failing_allocator::failNth(0);
        EXPECT_EQ(failing_allocator::live, liveBefore) << "blocks leaked";
    }

    // Aged Film carries its hair and scratch tables from call to call: its
    // pictures are not repeatable, only drawn.
    f.target[0] = Picture(64, 48, 0, 0x5A5A5A5A);
    std::srand(1);
    live(effect, format, f);
    if (effect == reelfx::test::effectIndex("Aged Film")) {
        EXPECT_FALSE(f.target[0].samePixels(Picture(64, 48, 0, 0x5A5A5A5A)));
    } else {
        EXPECT_TRUE(f.target[0].samePixels(expected[0]));
        EXPECT_TRUE(f.target[1].samePixels(expected[1]));
    }
}

INSTANTIATE_TEST_SUITE_P(AllEffects, AllocationFailure,
                         ::testing::Combine(::testing::Range(0, 25),
                                            ::testing::Values(kFourccArgb, kFourccAyuv)));

// What the host library makes of a module without memory, seen by a host.
TEST(AllocationFailure, HostErrorsNameTheEffectAndTheCall) {
    const int32_t mosaic = reelfx::test::effectIndex("Mosaic");
    const int32_t stainedGlass = reelfx::test::effectIndex("Stained Glass");
    const uint64_t hostRecords = 3;  // call block, host effect, effect state
    failing_allocator::failNth(hostRecords + 1);
    try {
        Instance inst(module(), mosaic, 64, 48);
        failing_allocator::failNth(0);
        ADD_FAILURE() << "created without memory";
    } catch (const ModuleError& e) {
        failing_allocator::failNth(0);
        EXPECT_STREQ(e.what(), "Mosaic: the module could not create an instance (out of memory)");
    }

    // Stained Glass keeps its cells in vectors: the first allocation of a
    // render is one of them.
    Instance inst(module(), stainedGlass, 64, 48);
    Frames f(kFourccArgb);
    failing_allocator::failNth(1);
    try {
        inst.render(&f.source[0], f.target[0]);
        failing_allocator::failNth(0);
        ADD_FAILURE() << "rendered without memory";
    } catch (const ModuleError& e) {
        failing_allocator::failNth(0);
        EXPECT_STREQ(e.what(), "Stained Glass: out of memory while rendering a 64x48 frame");
    }
}

}  // namespace
