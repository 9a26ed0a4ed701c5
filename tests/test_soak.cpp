// Many instances alive at once through thousands of calls: instances of any
// effect come and go, parameters change, frames change size and format. After
// every round, with all instances gone, the process holds exactly the blocks
// it held before (LeakSanitizer checks the same in the asan build).
#include <gtest/gtest.h>

#include <memory>
#include <vector>

#include "failing_allocator.h"
#include "support.h"

namespace {

using reelfx::Instance;
using reelfx::Picture;

uint32_t nextRandom(uint32_t& s) {
    s = s * 1664525u + 1013904223u;
    return s >> 8;
}

struct Geometry {
    int32_t width, height, stride;
};

TEST(Soak, ManyInstancesThousandsOfCalls) {
    constexpr Geometry kSizes[] = {{16, 12, 0}, {48, 32, 48 * 4 + 20}, {33, 17, 0}, {64, 40, 0}};
    constexpr uint32_t kFormats[] = {kFourccArgb, kFourccAyuv};
    constexpr size_t kAlive = 48;
    constexpr int kRounds = 3;
    constexpr int kCallsPerRound = 1500;

    std::vector<Picture> sources, targets;
    for (const Geometry& g : kSizes) {
        sources.push_back(reelfx::makeTestPicture(g.width, g.height, 0, g.stride));
        targets.emplace_back(g.width, g.height, g.stride);
    }
    std::vector<std::unique_ptr<Instance>> pool(kAlive);
    const reelfx::Module& module = reelfx::test::module();  // loaded before counting
    const int64_t baseline = failing_allocator::live;

    uint32_t seed = 2024;
    for (int round = 0; round < kRounds; ++round) {
        for (int call = 0; call < kCallsPerRound; ++call) {
            std::unique_ptr<Instance>& slot = pool[nextRandom(seed) % kAlive];
            const Geometry& g = kSizes[nextRandom(seed) % std::size(kSizes)];
            if (!slot || nextRandom(seed) % 8 == 0) {
                slot.reset();  // destroy before the next create
                slot = std::make_unique<Instance>(
                    module, static_cast<int32_t>(nextRandom(seed) % 25), g.width, g.height);
            }
            // One parameter anywhere from below its minimum to above its maximum.
            if (const int32_t n = slot->parameterCount()) {
                const int32_t j = static_cast<int32_t>(nextRandom(seed) % static_cast<uint32_t>(n));
                const ParameterDescriptor& d = slot->state().parameters.slot[j];
                const double span = d.maximum - d.minimum;
                slot->setParameter(
                    j, d.minimum - span / 2 + span * 2 * (nextRandom(seed) % 1024) / 1023);
            }
            const size_t size = static_cast<size_t>(&g - kSizes);
            const reelfx::RenderOptions o{.progress = (nextRandom(seed) % 101) / 100.0,
                                          .format = kFormats[nextRandom(seed) % 2]};
            ASSERT_EQ(slot->render(&sources[size], targets[size], o), 0);
        }
        for (auto& slot : pool) slot.reset();
        EXPECT_EQ(failing_allocator::live, baseline) << "blocks left after round " << round;
    }
}

}  // namespace
