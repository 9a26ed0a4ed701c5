// Instances of every effect rendered from four threads at once through the
// exported entry, as a host with several workers does: each thread owns an
// instance of every effect and renders a script of frames that changes the
// pixel format, the geometry (sizes and strides) and every parameter from
// frame to frame. Each frame must be exactly the picture one thread draws for
// the same script. Meant for the ThreadSanitizer build (scripts/ci/30-tsan.sh),
// which reports any data race inside the module; elsewhere it checks the
// pictures.
//
// "Aged Film" is left out: its instances share tables, so the host library
// serialises its calls. "Incognito" runs alongside the others (its calls may
// overlap) but its pictures depend on the order in which threads draw from
// the C library's generator, so only its deterministic frames are compared.
#include <cmath>
#include <cstdio>
#include <iterator>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "host/host.h"

namespace {

constexpr int kThreads = 4;
constexpr int kFrames = 6;

struct Geometry {
    int32_t width, height, strideBytes;
};

// Sizes and strides that change from frame to frame, padded rows included.
constexpr Geometry kGeometries[] = {{64, 48, 0}, {40, 72, 200}, {81, 33, 0}, {64, 48, 320}};

uint64_t hashOf(const reelfx::Picture& p) {
    uint64_t h = 1469598103934665603ull;
    for (int32_t y = 0; y < p.height; ++y) {
        for (int32_t x = 0; x < p.width; ++x) h = (h ^ p.at(x, y)) * 1099511628211ull;
    }
    return h;
}

// Every declared parameter moved to a value of its own for this frame.
void setFrameParameters(reelfx::Instance& inst, int frame) {
    for (const reelfx::ParameterInfo& p : inst.parameters()) {
        if (p.kind == kParameterKindChoice) {
            inst.setParameter(p.index, static_cast<double>(frame % p.choices.size()));
        } else if (p.kind == kParameterKindColour) {
            inst.setParameter(p.index, static_cast<double>(0xFF000000u | (frame * 0x3A5F17u)));
        } else {
            const double t = std::fmod(0.37 * frame + 0.21 * p.index, 1.0);
            inst.setParameter(p.index, p.minimum + t * (p.maximum - p.minimum));
        }
    }
}

reelfx::Picture renderFrame(reelfx::Instance& inst, int frame) {
    const Geometry g = kGeometries[frame % std::size(kGeometries)];
    const bool ayuv = frame % 2 == 1;
    reelfx::Picture source = reelfx::makeTestPicture(g.width, g.height, frame, g.strideBytes);
    if (ayuv) source = reelfx::toAyuv(source);
    reelfx::Picture target(g.width, g.height, g.strideBytes);
    setFrameParameters(inst, frame);
    reelfx::RenderOptions o;
    o.progress = frame / static_cast<double>(kFrames - 1);
    o.format = ayuv ? kFourccAyuv : kFourccArgb;
    inst.render(&source, target, o);
    return target;
}

// The hashes of the script's frames for every effect, in catalogue order.
std::vector<std::vector<uint64_t>> renderScript(const reelfx::Module& module,
                                                const std::vector<reelfx::EffectInfo>& effects) {
    std::vector<std::unique_ptr<reelfx::Instance>> instances;
    for (const reelfx::EffectInfo& e : effects) {
        instances.push_back(std::make_unique<reelfx::Instance>(module, e.index, 64, 48));
    }
    std::vector<std::vector<uint64_t>> hashes(effects.size());
    for (int frame = 0; frame < kFrames; ++frame) {
        for (size_t k = 0; k < effects.size(); ++k) {
            hashes[k].push_back(hashOf(renderFrame(*instances[k], frame)));
        }
    }
    return hashes;
}

}  // namespace

int main() {
    const reelfx::Module module(reelfx::Module::defaultPath());
    std::vector<reelfx::EffectInfo> effects;
    for (const reelfx::EffectInfo& e : module.catalogue()) {
        if (!e.callsSerialised) effects.push_back(e);
    }
    if (effects.size() != 24) {
        std::fprintf(stderr, "expected 24 effects whose calls may overlap, found %zu\n",
                     effects.size());
        return 1;
    }
    const auto reference = renderScript(module, effects);

    std::vector<std::vector<std::vector<uint64_t>>> got(kThreads);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] { got[t] = renderScript(module, effects); });
    }
    for (std::thread& t : threads) t.join();

    int differing = 0;
    for (int t = 0; t < kThreads; ++t) {
        for (size_t k = 0; k < effects.size(); ++k) {
            if (effects[k].sharesState) continue;
            for (int frame = 0; frame < kFrames; ++frame) {
                if (got[t][k][frame] == reference[k][frame]) continue;
                std::fprintf(stderr, "thread %d, %s, frame %d: differs from one thread's\n", t,
                             effects[k].name.c_str(), frame);
                ++differing;
            }
        }
    }
    if (differing) return 1;
    std::printf("%d threads drew what one thread draws: %zu effects x %d frames each\n", kThreads,
                effects.size(), kFrames);
    return 0;
}
