// libFuzzer target over the exported entry, driven as a hostile host would:
// the input is a short script of calls (catalogue queries for any index,
// unknown commands, create, render and destroy, in any order, on two call
// blocks) with every value a host controls chosen before any pixel: effect
// index, frame geometry up to 2048 on a side and the television sizes, row
// strides of every kind, aspects and presets, progress and every parameter
// value. Parameters, geometry and aspects change between renders of one
// instance. Pixels come from a seed, so a large frame costs four bytes.
//
// After every call the target checks what a host relies on: the result; the
// source picture and every host record byte the module does not own left as
// they were; guard bytes around both pictures and the row padding untouched
// (AddressSanitizer also traps any access to them); outside the active
// rectangle nothing but the frame context's black bars.
//
// Cost per input is bounded: at most kMaxCalls calls and kPixelBudget
// rendered pixels (2^21: one 1920 x 1080 or 2048 x 1024 frame, or many small
// ones). Sizes are mostly up to 40 on a side, one in six up to 256; the
// television sizes come one time in 21 and anything up to 2048 on a side
// one time in 64, and only one frame above 65536 pixels is drawn per input
// (later ones shrink to 32 x 32).
#include <memory>

#include "fuzz/fuzz_support.h"
#include "plugin/host_records.h"

namespace {

using fuzz::GuardedPicture;

constexpr int kMaxCalls = 40;
constexpr int64_t kPixelBudget = int64_t{1} << 21;

constexpr double k4x3 = 1.3333333333333333;
constexpr double k16x9 = 1.7777777777777777;
constexpr uint32_t kBlackArgb = 0xFF000000u;
constexpr uint32_t kBlackAyuv = 0xFF0F8080u;

// Parameter records each effect declares, by index.
constexpr int kDeclared[kEffectCount] = {3, 7, 2, 4, 1, 1, 1, 1, 2, 3, 1, 3, 4,
                                         2, 5, 4, 4, 2, 2, 3, 2, 2, 1, 1, 3};

// Every record the host owns for one instance, kept together so that one
// comparison covers every byte.
struct Records {
    PluginCallBlock block;
    HostEffect hostEffect;
    EffectState state;
    HostFrame source;
    HostFrame target;
    double displayAspect;
};

enum class SourceMode { Own, NoFrame, NoPixels, InPlace };

struct Slot {
    std::unique_ptr<Records> rec = std::make_unique<Records>();
    int32_t effect = 0;
    GuardedPicture src;
    GuardedPicture dst;
    SourceMode sourceMode = SourceMode::Own;
    bool targetPixels = true;
};

struct Session {
    explicit Session(FuzzedDataProvider& provider) : in(provider) {}
    FuzzedDataProvider& in;
    Slot slots[2];
    int64_t budget = kPixelBudget;
};

// The active rectangle of a W x H frame for picture aspect A shown at display
// aspect D, and whether the bars around it are painted: centred fitting with
// the small-frame and 480-wide special cases, truncations in this order, and
// the rectangle kept inside the frame.
struct Active {
    int32_t x, y, w, h;
    bool painted;
};
Active activeRect(int32_t W, int32_t H, double A, double D) {
    if (A == D) return {0, 0, W, H, false};
    const double r = 1.0 / A;
    const int32_t k = fuzz::truncX86(W * r);
    int32_t aw = W;
    int32_t ah = k;
    if (A > D) {
        ah = fuzz::truncX86((H * r) * D);
    } else {
        if (W == 480 && (H == 576 || H == 480)) {
            const int32_t h = fuzz::truncX86((H * r) * D);
            if (h < H) {
                ah = h;
            } else {
                aw = fuzz::truncX86((480.0 / D) * A);
                ah = H;
            }
        } else {
            const double q = W / D;
            if (!(static_cast<double>(k) < q)) {
                aw = fuzz::truncX86(q * A);
                ah = H;
                if (W < 150) aw = A == static_cast<double>(W) / H ? W : fuzz::truncX86(H * A);
            }
        }
        if (aw > W) {
            aw = W;
            ah = k;
        }
    }
    aw = std::clamp(aw, 0, W);
    ah = std::clamp(ah, 0, H);
    return {(W - aw) >> 1, (H - ah) >> 1, aw, ah, true};
}

// ---- choosing what the host hands over --------------------------------------

int32_t pickEffect(FuzzedDataProvider& in) {
    if (in.ConsumeIntegralInRange<int>(0, 15) != 15)
        return in.ConsumeIntegralInRange<int32_t>(0, 24);
    static const int32_t kOutside[] = {25, 26, 30, 255, -1, INT32_MIN, INT32_MAX};
    return kOutside[in.ConsumeIntegralInRange<size_t>(0, std::size(kOutside) - 1)];
}

double pickAspect(FuzzedDataProvider& in, int32_t W, int32_t H) {
    switch (in.ConsumeIntegralInRange<int>(0, 7)) {
        case 0: return k4x3;
        case 1: return k16x9;
        case 2: return H != 0 ? static_cast<double>(W) / H : 1.0;
        case 3: {
            static const double kRatios[] = {1.0, 2.35, 1.85, 1.7, 1.6995, 1.25, 0.5625, 0.75};
            return kRatios[in.ConsumeIntegralInRange<size_t>(0, std::size(kRatios) - 1)];
        }
        case 4: return fuzz::pickSpecialDouble(in);
        case 5:
            return in.ConsumeIntegralInRange<int32_t>(1, 64) /
                   static_cast<double>(in.ConsumeIntegralInRange<int32_t>(1, 64));
        default: return fuzz::pickDouble(in);
    }
}

// Frame sizes: mostly small, the television and special-rule sizes, now and
// then anything up to 2048 on a side, and empty or negative ones.
void pickSize(FuzzedDataProvider& in, int32_t& W, int32_t& H) {
    static const int32_t kTelevision[][2] = {
        {720, 576}, {720, 480}, {480, 576}, {480, 480}, {480, 360}, {1920, 1080}, {1280, 720},
        {352, 288}, {149, 90},  {150, 90},  {120, 90},  {128, 72},  {100, 70},    {64, 48},
        {700, 500}, {8, 2},     {1, 1},     {2048, 1},  {1, 2048},  {2048, 2048}};
    const int kind = in.ConsumeIntegralInRange<int>(0, 63);
    if (kind < 58) {
        W = in.ConsumeIntegralInRange<int32_t>(1, kind < 48 ? 40 : 256);
        H = in.ConsumeIntegralInRange<int32_t>(1, kind < 48 ? 40 : 256);
    } else if (kind < 60) {
        W = in.ConsumeIntegralInRange<int32_t>(-2, 0);
        H = in.ConsumeIntegralInRange<int32_t>(-2, 3);
    } else if (kind < 63) {
        const auto& s =
            kTelevision[in.ConsumeIntegralInRange<size_t>(0, std::size(kTelevision) - 1)];
        W = s[0];
        H = s[1];
    } else {
        W = in.ConsumeIntegralInRange<int32_t>(1, 2048);
        H = in.ConsumeIntegralInRange<int32_t>(1, 2048);
    }
}

// Lays out new pictures for `slot`. Frames over the remaining budget, and
// large frames beyond the first, shrink to a small size.
void setGeometry(Session& s, Slot& slot) {
    FuzzedDataProvider& in = s.in;
    int32_t W = 0;
    int32_t H = 0;
    pickSize(in, W, H);
    const int64_t area = int64_t{std::max(W, 0)} * std::max(H, 0);
    if (area > s.budget || (area > 65536 && s.budget < kPixelBudget)) {
        W = std::min(W, 32);
        H = std::min(H, 32);
    }
    const int32_t S = fuzz::pickStride(in, std::max(W, 0));
    slot.dst = GuardedPicture(W, H, S);
    slot.dst.fill(in.ConsumeIntegral<uint16_t>(), in.ConsumeIntegralInRange<int>(0, 4));
    slot.src = GuardedPicture(W, H, S);
    slot.src.fill(in.ConsumeIntegral<uint16_t>(), in.ConsumeIntegralInRange<int>(0, 4));

    Records& r = *slot.rec;
    r.target.format =
        in.ConsumeBool() ? kHostFormatAyuv : (in.ConsumeBool() ? 0 : in.ConsumeIntegral<int32_t>());
    r.target.width = W;
    r.target.height = H;
    r.target.stride = S;
    r.target.pixels = slot.targetPixels ? slot.dst.pixels() : nullptr;
    // Only the source's pixels are read; the rest may say anything.
    if (in.ConsumeIntegralInRange<int>(0, 7) == 7) {
        r.source.format = in.ConsumeIntegral<int32_t>();
        r.source.width = in.ConsumeIntegral<int32_t>();
        r.source.height = in.ConsumeIntegral<int32_t>();
        r.source.stride = in.ConsumeIntegral<int32_t>();
    } else {
        r.source.format = r.target.format;
        r.source.width = W;
        r.source.height = H;
        r.source.stride = S;
    }
    r.source.pixels = slot.sourceMode == SourceMode::InPlace    ? slot.dst.pixels()
                      : slot.sourceMode == SourceMode::NoPixels ? nullptr
                                                                : slot.src.pixels();
}

void pickSourceMode(FuzzedDataProvider& in, Slot& slot) {
    const int m = in.ConsumeIntegralInRange<int>(0, 11);
    slot.sourceMode = m == 9    ? SourceMode::NoFrame
                      : m == 10 ? SourceMode::NoPixels
                      : m == 11 ? SourceMode::InPlace
                                : SourceMode::Own;
    Records& r = *slot.rec;
    r.state.sourceFrame = slot.sourceMode == SourceMode::NoFrame ? nullptr : &r.source;
    r.source.pixels = slot.sourceMode == SourceMode::InPlace    ? slot.dst.pixels()
                      : slot.sourceMode == SourceMode::NoPixels ? nullptr
                                                                : slot.src.pixels();
}

void pickAspects(FuzzedDataProvider& in, Slot& slot) {
    Records& r = *slot.rec;
    const int32_t W = r.target.width;
    const int32_t H = r.target.height;
    r.displayAspect = pickAspect(in, W, H);
    r.state.pictureAspect = pickAspect(in, W, H);
    static const int32_t kPresets[] = {0, 1, 2, 3, 4, -1, INT32_MIN};
    r.block.aspectPreset = kPresets[in.ConsumeIntegralInRange<size_t>(0, std::size(kPresets) - 1)];
    r.block.aspectFitting =
        in.ConsumeBool() ? 0 : (in.ConsumeBool() ? 1 : in.ConsumeIntegral<uint8_t>());
    r.block.aspectFitMode =
        in.ConsumeBool() ? 0 : (in.ConsumeBool() ? 1 : in.ConsumeIntegral<int32_t>());
}

double pickProgress(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange<int>(0, 3)) {
        case 0: return 0.0;
        case 1: return in.ConsumeIntegralInRange<int>(0, 16) / 16.0;
        default: return fuzz::pickDouble(in);
    }
}

void pickParameters(FuzzedDataProvider& in, Records& r) {
    const int changes = in.ConsumeIntegralInRange<int>(0, kParameterSlots);
    for (int i = 0; i < changes; ++i) {
        const int j = in.ConsumeIntegralInRange<int>(0, kParameterSlots - 1);
        r.state.parameters.slot[j].value = fuzz::pickDouble(in);
    }
}

// ---- calls and what the host checks after each --------------------------------

struct Snapshot {
    Records rec[2];
    std::vector<uint8_t> src[2];
    std::vector<uint8_t> dst[2];
};

void takeSnapshot(Session& s, Snapshot& snap) {
    for (int i = 0; i < 2; ++i) {
        std::memcpy(&snap.rec[i], s.slots[i].rec.get(), sizeof(Records));
        snap.src[i] = s.slots[i].src.bytes();
        snap.dst[i] = s.slots[i].dst.bytes();
    }
}

void expectRecords(const Records& before, const Records& after) {
    FUZZ_EXPECT(std::memcmp(&before, &after, sizeof(Records)) == 0);
}

// Everything but what the call may change is as the snapshot has it.
void expectUntouched(Session& s, const Snapshot& snap, int except) {
    for (int i = 0; i < 2; ++i) {
        if (i == except) continue;
        expectRecords(snap.rec[i], *s.slots[i].rec);
        FUZZ_EXPECT(snap.src[i] == s.slots[i].src.bytes());
        FUZZ_EXPECT(snap.dst[i] == s.slots[i].dst.bytes());
    }
}

// FUZZ_TRACE=1 in the environment lists every call, for reading a finding.
bool tracing() {
    static const bool on = std::getenv("FUZZ_TRACE") != nullptr;
    return on;
}

intptr_t call(Records& r, int32_t effect, int32_t command) {
    if (tracing()) {
        const HostFrame& t = r.target;
        std::fprintf(stderr,
                     "call effect %d command %d: %dx%d stride %d format %d, D %g A %g "
                     "fit %d/%d/%d, progress %g, P = %g %g %g %g %g %g %g\n",
                     effect, command, t.width, t.height, t.stride, t.format, r.displayAspect,
                     r.state.pictureAspect, r.block.aspectFitting, r.block.aspectFitMode,
                     r.block.aspectPreset, r.state.progress, r.state.parameters.slot[0].value,
                     r.state.parameters.slot[1].value, r.state.parameters.slot[2].value,
                     r.state.parameters.slot[3].value, r.state.parameters.slot[4].value,
                     r.state.parameters.slot[5].value, r.state.parameters.slot[6].value);
    }
    return xqPluginCall(&r.block, effect, command);
}

void catalogue(Session& s) {
    static const int32_t kIndices[] = {-1, 25, 26, INT32_MIN, INT32_MAX, 1000};
    const int32_t index =
        s.in.ConsumeBool()
            ? s.in.ConsumeIntegralInRange<int32_t>(0, 24)
            : (s.in.ConsumeBool() ? kIndices[s.in.ConsumeIntegralInRange<size_t>(0, 5)]
                                  : s.in.ConsumeIntegral<int32_t>());
    Snapshot snap;
    takeSnapshot(s, snap);
    const auto* d = reinterpret_cast<const EffectDescriptor*>(xqPluginCall(
        s.in.ConsumeBool() ? nullptr : &s.slots[0].rec->block, index, kCommandCatalogue));
    expectUntouched(s, snap, -1);
    if (index < 0 || index >= kEffectCount) {
        FUZZ_EXPECT(d == nullptr, index);
        return;
    }
    FUZZ_EXPECT(d != nullptr, index);
    FUZZ_EXPECT(d->index == static_cast<uint32_t>(index) && d->code1 == 1 && d->code2 == 2, index);
    FUZZ_EXPECT(d->name[0] != '\0' && std::memchr(d->name, 0, sizeof d->name) != nullptr, index);
    FUZZ_EXPECT(std::memchr(d->category, 0, sizeof d->category) != nullptr, index);
    FUZZ_EXPECT(std::memchr(d->tags, 0, sizeof d->tags) != nullptr, index);
    FUZZ_EXPECT(index == kEffectCount - 1 ? d->next == nullptr
                                          : d->next && d->next->index == uint32_t(index) + 1,
                index);
}

void unknownCommand(Session& s, Slot& slot) {
    static const int32_t kCommands[] = {2, 3, 5, 6, 7, 9, 16, -1, -4, INT32_MIN, INT32_MAX};
    int32_t command = s.in.ConsumeBool() ? kCommands[s.in.ConsumeIntegralInRange<size_t>(0, 10)]
                                         : s.in.ConsumeIntegral<int32_t>();
    if (command == 0 || command == 1 || command == 4 || command == 8) command = 3;
    Snapshot snap;
    takeSnapshot(s, snap);
    FUZZ_EXPECT(call(*slot.rec, pickEffect(s.in), command) == 0, command);
    expectUntouched(s, snap, -1);
}

void destroy(Session& s, Slot& slot) {
    Snapshot snap;
    takeSnapshot(s, snap);
    FUZZ_EXPECT(call(*slot.rec, slot.effect, kCommandDestroy) == 0);
    FUZZ_EXPECT(slot.rec->block.instance == nullptr);
    snap.rec[&slot - s.slots].block.instance = nullptr;
    expectUntouched(s, snap, -1);
}

// A packed choice list: texts ending with an empty one, within reason.
bool choiceListEnds(const char* p) {
    for (int entries = 0; entries < 16; ++entries) {
        const size_t n = std::strlen(p);
        if (n == 0) return entries > 0;
        p += n + 1;
    }
    return false;
}

void create(Session& s, Slot& slot) {
    FuzzedDataProvider& in = s.in;
    if (slot.rec->block.instance) destroy(s, slot);
    Records& r = *slot.rec;
    slot.effect = pickEffect(in);
    static const int32_t kOdd[][2] = {
        {0, 0},         {-1, 576},      {720, -5},     {INT32_MAX, INT32_MAX},
        {INT32_MIN, 2}, {65536, 65536}, {46341, 46341}};
    if (!in.ConsumeBool()) {
        r.block.frameWidth = r.target.width;
        r.block.frameHeight = r.target.height;
    } else if (in.ConsumeBool()) {
        r.block.frameWidth = in.ConsumeIntegralInRange<int32_t>(1, 2048);
        r.block.frameHeight = in.ConsumeIntegralInRange<int32_t>(1, 2048);
    } else {
        const auto& o = kOdd[in.ConsumeIntegralInRange<size_t>(0, std::size(kOdd) - 1)];
        r.block.frameWidth = o[0];
        r.block.frameHeight = o[1];
    }
    const bool withState = in.ConsumeIntegralInRange<int>(0, 15) != 15;
    r.hostEffect.state = withState ? &r.state : nullptr;

    Snapshot snap;
    takeSnapshot(s, snap);
    FUZZ_EXPECT(call(r, slot.effect, kCommandCreate) == 0, slot.effect);
    FUZZ_EXPECT(r.block.instance != nullptr);
    Records& expected = snap.rec[&slot - s.slots];
    expected.block.instance = r.block.instance;
    if (withState) {
        FUZZ_EXPECT(r.state.cleared00 == 0 && r.state.cleared38 == 0 && r.state.cleared40 == 0);
        expected.state.cleared00 = expected.state.cleared38 = expected.state.cleared40 = 0;
        const int declared =
            slot.effect >= 0 && slot.effect < kEffectCount ? kDeclared[slot.effect] : 0;
        for (int j = 0; j < declared; ++j) {
            const ParameterDescriptor& p = r.state.parameters.slot[j];
            FUZZ_EXPECT(p.valid == 1 && p.name != nullptr && p.name[0] != '\0', slot.effect, j);
            FUZZ_EXPECT(p.kind == 1 || p.kind == 2 || p.kind == 3 || p.kind == 8, slot.effect, j);
            FUZZ_EXPECT((p.kind == 2) == (p.choices != nullptr), slot.effect, j);
            FUZZ_EXPECT(p.kind != 2 || choiceListEnds(p.choices), slot.effect, j);
            // The module owns the record up to `valid`; the bytes after it are the host's.
            std::memcpy(&expected.state.parameters.slot[j], &p,
                        offsetof(ParameterDescriptor, valid) + 1);
        }
    }
    expectUntouched(s, snap, -1);
    expectRecords(expected, r);
    r.hostEffect.state = &r.state;
}

// Which target bytes a render may change and to what, checked against the
// snapshot taken before it.
FUZZ_UNCOUNTED void expectTarget(const Slot& slot, const std::vector<uint8_t>& before, bool drawn,
                                 double A, double D) {
    const GuardedPicture& dst = slot.dst;
    const std::vector<uint8_t>& after = dst.bytes();
    if (!drawn) {
        FUZZ_EXPECT(before == after);
        return;
    }
    const int32_t W = dst.width();
    const int32_t H = dst.height();
    const Active a = activeRect(W, H, A, D);
    const uint32_t black = slot.rec->target.format == kHostFormatAyuv ? kBlackAyuv : kBlackArgb;
    const bool catalogued = slot.effect >= 0 && slot.effect < kEffectCount;
    // Guards before the first row, between rows and after the last.
    size_t next = 0;
    for (int32_t y = 0; y <= H; ++y) {
        const size_t start = y < H ? dst.offsetOf(0, y) : after.size();
        FUZZ_EXPECT(std::memcmp(before.data() + next, after.data() + next, start - next) == 0, y);
        next = start + static_cast<size_t>(W) * 4;
    }
    for (int32_t y = 0; y < H; ++y) {
        const uint8_t* was = before.data() + dst.offsetOf(0, y);
        const uint8_t* now = after.data() + dst.offsetOf(0, y);
        // Pixels x0 .. x1 - 1 of this row lie outside the active rectangle.
        auto outside = [&](int32_t x0, int32_t x1) __attribute__((no_sanitize("coverage"))) {
            if (x0 >= x1) return;
            if (!a.painted) {
                FUZZ_EXPECT(std::memcmp(was + 4 * x0, now + 4 * x0, 4 * size_t(x1 - x0)) == 0, x0,
                            y);
                return;
            }
            for (int32_t x = x0; x < x1; ++x) {
                uint32_t p;
                std::memcpy(&p, now + 4 * x, 4);
                FUZZ_EXPECT(p == black, x, y);
            }
        };
        if (y < a.y || y >= a.y + a.h) {
            outside(0, W);
            continue;
        }
        outside(0, a.x);
        outside(a.x + a.w, W);
        if (!catalogued) {
            FUZZ_EXPECT(std::memcmp(was + 4 * a.x, now + 4 * a.x, 4 * size_t(a.w)) == 0, y);
        }
    }
}

void render(Session& s, Slot& slot) {
    FuzzedDataProvider& in = s.in;
    Records& r = *slot.rec;
    const unsigned changes = in.ConsumeIntegral<uint8_t>();
    if (changes & 1) pickParameters(in, r);
    if (changes & 2) {
        pickSourceMode(in, slot);
        setGeometry(s, slot);
    }
    if (changes & 4) pickAspects(in, slot);
    if (changes & 8) r.state.progress = pickProgress(in);
    // Records a careless host gets wrong, now and then.
    const int oddity = (changes & 0x10) ? in.ConsumeIntegralInRange<int>(0, 7) : 0;
    HostEffect* const hostEffect = r.block.hostEffect;
    HostFrame* const targetFrame = r.state.targetFrame;
    const double* const displayAspect = r.block.displayAspect;
    EffectState* const state = r.hostEffect.state;
    if (oddity == 1) r.block.hostEffect = nullptr;
    if (oddity == 2) r.hostEffect.state = nullptr;
    if (oddity == 3) r.state.targetFrame = nullptr;
    if (oddity == 4) r.block.displayAspect = nullptr;
    if (oddity == 5) r.hostEffect.state = &r.state;

    const int32_t W = r.target.width;
    const int32_t H = r.target.height;
    const int32_t S = r.target.stride;
    const int64_t area = int64_t{std::max(W, 0)} * std::max(H, 0);
    if (area <= s.budget) {
        s.budget -= std::max<int64_t>(area, 1);
        const bool reachable = r.block.hostEffect && r.block.hostEffect->state &&
                               r.block.hostEffect->state->targetFrame;
        const bool drawn = reachable && r.block.instance && r.target.pixels && W > 0 && H > 0 &&
                           S % 4 == 0 && int64_t{S} >= int64_t{W} * 4;
        const double D = r.block.displayAspect ? *r.block.displayAspect : 1.0;
        double A = D;
        if (r.block.aspectFitting != 0 && r.block.aspectFitMode != 1) {
            A = r.state.pictureAspect;
            if (r.block.aspectPreset == 2) A = k4x3;
            if (r.block.aspectPreset == 3) A = k16x9;
        }

        Snapshot snap;
        takeSnapshot(s, snap);
        slot.src.poisonOutside();
        slot.dst.poisonOutside();
        const intptr_t result = call(r, slot.effect, kCommandRender);
        slot.src.unpoison();
        slot.dst.unpoison();

        FUZZ_EXPECT(result == (reachable && r.block.instance ? 0 : 1), result);
        const int self = static_cast<int>(&slot - s.slots);
        expectRecords(snap.rec[self], r);
        expectUntouched(s, snap, self);
        FUZZ_EXPECT(snap.src[self] == slot.src.bytes());
        expectTarget(slot, snap.dst[self], drawn, A, D);
    }
    r.block.hostEffect = hostEffect;
    r.hostEffect.state = state;
    r.state.targetFrame = targetFrame;
    r.block.displayAspect = displayAspect;
}

void initialise(Slot& slot) {
    Records& r = *slot.rec;
    // Host-owned bytes the module must leave alone hold a pattern, not zeros.
    std::memset(&r, 0xC7, sizeof r);
    r.block.instance = nullptr;
    r.block.hostEffect = &r.hostEffect;
    r.block.displayAspect = &r.displayAspect;
    r.hostEffect.state = &r.state;
    r.state.targetFrame = &r.target;
    r.state.progress = 0.0;
    for (int j = 0; j < kParameterSlots; ++j) r.state.parameters.slot[j].value = 0.0;
    // A small frame shown as it is until the script changes anything.
    r.state.sourceFrame = &r.source;
    slot.dst = GuardedPicture(24, 16, 96);
    slot.dst.fill(1, 0);
    slot.src = GuardedPicture(24, 16, 96);
    slot.src.fill(2, 1);
    r.source = HostFrame{{}, 0, 24, 16, 96, slot.src.pixels()};
    r.target = HostFrame{{}, 0, 24, 16, 96, slot.dst.pixels()};
    r.displayAspect = r.state.pictureAspect = k4x3;
    r.block.aspectPreset = 0;
    r.block.aspectFitting = 0;
    r.block.aspectFitMode = 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    Session s(in);
    for (Slot& slot : s.slots) initialise(slot);
    for (int calls = 0; calls < kMaxCalls && in.remaining_bytes() > 0; ++calls) {
        Slot& slot = s.slots[in.ConsumeIntegralInRange<int>(0, 7) == 7 ? 1 : 0];
        switch (in.ConsumeIntegralInRange<int>(0, 11)) {
            case 8: catalogue(s); break;
            case 9: unknownCommand(s, slot); break;
            case 10:
            case 11: create(s, slot); break;
            case 7: destroy(s, slot); break;
            default:
                // A render before any create is a host mistake the entry refuses.
                if (!slot.rec->block.instance && !in.ConsumeBool()) create(s, slot);
                render(s, slot);
                break;
        }
    }
    for (Slot& slot : s.slots) {
        if (slot.rec->block.instance) destroy(s, slot);
    }
    return 0;
}
