// Several frei0r plug-ins driven from four threads at once, each thread with
// instances of its own, as MLT and GStreamer do: set values, read them back,
// update frames. Meant for the ThreadSanitizer build, which reports any data
// race; on its own it checks that choice texts read back are the ones set
// and that the deterministic effects draw what a single thread draws.
// Then four instances of Dream render on four threads until the adapter has
// seen two renders inside the module at once: a lock around every call
// would keep that count at one. Last, two slices of a frame on one instance
// at once, as MLT's `threads` property has it.
#include <dlfcn.h>

#include <atomic>
#include <cstdio>
#include <cstring>
#include <string>
#include <thread>
#include <vector>

extern "C" {
#include <frei0r.h>
}

namespace {

constexpr unsigned kWidth = 96, kHeight = 64;
constexpr int kThreads = 4, kRounds = 20;

struct Plugin {
    std::string slug;
    bool deterministic;  // draws the same frame for the same values
    void* handle = nullptr;
    int (*init)() = nullptr;
    f0r_instance_t (*construct)(unsigned, unsigned) = nullptr;
    void (*destruct)(f0r_instance_t) = nullptr;
    void (*setParam)(f0r_instance_t, f0r_param_t, int) = nullptr;
    void (*getParam)(f0r_instance_t, f0r_param_t, int) = nullptr;
    void (*getParamInfo)(f0r_param_info_t*, int) = nullptr;
    void (*pluginInfo)(f0r_plugin_info_t*) = nullptr;
    void (*update)(f0r_instance_t, double, const uint32_t*, uint32_t*) = nullptr;

    bool load() {
        handle = dlopen((std::string(REELFX_FREI0R_DIR) + "/reelfx_" + slug + ".so").c_str(),
                        RTLD_NOW | RTLD_LOCAL);
        if (!handle) return false;
        init = reinterpret_cast<decltype(init)>(dlsym(handle, "f0r_init"));
        construct = reinterpret_cast<decltype(construct)>(dlsym(handle, "f0r_construct"));
        destruct = reinterpret_cast<decltype(destruct)>(dlsym(handle, "f0r_destruct"));
        setParam = reinterpret_cast<decltype(setParam)>(dlsym(handle, "f0r_set_param_value"));
        getParam = reinterpret_cast<decltype(getParam)>(dlsym(handle, "f0r_get_param_value"));
        getParamInfo =
            reinterpret_cast<decltype(getParamInfo)>(dlsym(handle, "f0r_get_param_info"));
        pluginInfo = reinterpret_cast<decltype(pluginInfo)>(dlsym(handle, "f0r_get_plugin_info"));
        update = reinterpret_cast<decltype(update)>(dlsym(handle, "f0r_update"));
        return init && construct && destruct && setParam && getParam && getParamInfo &&
               pluginInfo && update && init() == 1;
    }
};

std::vector<uint32_t> sourceFrame() {
    std::vector<uint32_t> frame(kWidth * kHeight);
    for (unsigned i = 0; i < frame.size(); ++i) frame[i] = 0xFF000000u | (i * 2654435761u >> 8);
    return frame;
}

// One round of host calls on one instance; returns the frame drawn. The
// round number moves every numeric value and picks every other choice.
std::vector<uint32_t> drive(const Plugin& p, f0r_instance_t inst, int round, bool& ok) {
    f0r_plugin_info_t info{};
    p.pluginInfo(&info);
    for (int i = 0; i < info.num_params; ++i) {
        f0r_param_info_t pi{};
        p.getParamInfo(&pi, i);
        if (pi.type == F0R_PARAM_DOUBLE) {
            double v = (round % 5) / 4.0;
            p.setParam(inst, &v, i);
        } else if (pi.type == F0R_PARAM_STRING) {
            const std::string want = std::to_string(round % 2);
            const char* text = want.c_str();
            p.setParam(inst, &text, i);
            f0r_param_string got = nullptr;
            p.getParam(inst, &got, i);
            // Read the text the plug-in handed back twice, a while apart:
            // it must stay this instance's text while other threads run.
            const std::string first = got ? got : "";
            std::this_thread::yield();
            if (!got || first != got || first.empty()) ok = false;
        }
    }
    static const std::vector<uint32_t> source = sourceFrame();
    std::vector<uint32_t> out(kWidth * kHeight, 0);
    p.update(inst, round, source.data(), out.data());
    return out;
}

// Four threads, an instance each, render until two renders have been inside
// the module together or each thread has rendered kOverlapFrames frames.
bool rendersOverlap(const Plugin& dream) {
    constexpr int kOverlapFrames = 400;
    constexpr unsigned kSide = 256;
    using MostFn = int (*)();
    // Found through the plug-in, which links the adapter library.
    const auto most =
        reinterpret_cast<MostFn>(dlsym(dream.handle, "reelfx_frei0r_most_renders_at_once"));
    if (!most) {
        std::fprintf(stderr, "the adapter library exports no render count: %s\n", dlerror());
        return false;
    }
    std::atomic<bool> seen{false};
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&] {
            f0r_instance_t inst = dream.construct(kSide, kSide);
            std::vector<uint32_t> in(kSide * kSide, 0xFF406080u), out(kSide * kSide);
            for (int f = 0; f < kOverlapFrames && !seen; ++f) {
                dream.update(inst, f, in.data(), out.data());
                if (most() >= 2) seen = true;
            }
            dream.destruct(inst);
        });
    }
    for (std::thread& t : threads) t.join();
    if (!seen) {
        std::fprintf(stderr,
                     "renders never overlapped: most at once %d (a lock around every call?)\n",
                     most());
        return false;
    }
    std::printf("renders overlapped: %d inside the module at once\n", most());
    return true;
}

// MLT's `threads` property: two slices of one frame updated on one instance
// from two threads at once, each slice a picture of its own. They must take
// turns inside the plug-in and draw what one thread draws slice by slice.
bool slicesOnOneInstance(const Plugin& lantern) {
    constexpr unsigned kSlice = kHeight / 2;
    const std::vector<uint32_t> source = sourceFrame();
    f0r_instance_t inst = lantern.construct(kWidth, kSlice);
    std::vector<uint32_t> once(kWidth * kHeight), sliced(kWidth * kHeight);
    for (unsigned half = 0; half < 2; ++half) {
        lantern.update(inst, 0, source.data() + half * kWidth * kSlice,
                       once.data() + half * kWidth * kSlice);
    }
    bool same = true;
    for (int round = 0; round < kRounds && same; ++round) {
        std::thread other([&] {
            lantern.update(inst, 0, source.data() + kWidth * kSlice,
                           sliced.data() + kWidth * kSlice);
        });
        lantern.update(inst, 0, source.data(), sliced.data());
        other.join();
        same = sliced == once;
    }
    lantern.destruct(inst);
    if (!same) std::fprintf(stderr, "slices updated at once differ from slices one by one\n");
    return same;
}

}  // namespace

int main() {
    std::vector<Plugin> plugins = {{"aged_film", false},
                                   {"incognito", false},
                                   {"mosaic", true},
                                   {"dream", true},
                                   {"flip_xy", true},
                                   {"newsprint", true},
                                   {"crop_scale_to_fit", true},
                                   {"lantern", true}};
    for (Plugin& p : plugins) {
        if (!p.load()) {
            std::fprintf(stderr, "cannot load %s: %s\n", p.slug.c_str(), dlerror());
            return 1;
        }
    }
    // What one thread draws, round by round.
    std::vector<std::vector<std::vector<uint32_t>>> reference(plugins.size());
    bool ok = true;
    for (size_t k = 0; k < plugins.size(); ++k) {
        f0r_instance_t inst = plugins[k].construct(kWidth, kHeight);
        for (int r = 0; r < kRounds; ++r) reference[k].push_back(drive(plugins[k], inst, r, ok));
        plugins[k].destruct(inst);
    }
    std::vector<int> mismatches(kThreads, 0);
    std::vector<char> textsOk(kThreads, 1);
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
        threads.emplace_back([&, t] {
            std::vector<f0r_instance_t> mine;
            for (const Plugin& p : plugins) mine.push_back(p.construct(kWidth, kHeight));
            bool textOk = true;
            for (int r = 0; r < kRounds; ++r) {
                for (size_t k = 0; k < plugins.size(); ++k) {
                    const auto frame = drive(plugins[k], mine[k], r, textOk);
                    if (plugins[k].deterministic && frame != reference[k][r]) ++mismatches[t];
                }
            }
            for (size_t k = 0; k < plugins.size(); ++k) plugins[k].destruct(mine[k]);
            textsOk[t] = textOk;
        });
    }
    for (std::thread& t : threads) t.join();
    for (int t = 0; t < kThreads; ++t) {
        if (mismatches[t]) std::fprintf(stderr, "thread %d: %d frames differ\n", t, mismatches[t]);
        if (!textsOk[t]) std::fprintf(stderr, "thread %d: a choice text changed under it\n", t);
        ok = ok && !mismatches[t] && textsOk[t];
    }
    if (!ok) {
        std::puts("FAILED");
        return 1;
    }
    std::puts("four threads drew what one thread draws");
    const bool overlap = rendersOverlap(plugins[3]);
    return overlap && slicesOnOneInstance(plugins.back()) ? 0 : 1;
}
