#include "tools/chunk_meta.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <nlohmann/json.hpp>

#include "tools/input_source.h"
#include "tools/params.h"
#include "tools/render.h"

namespace reelfx::tool {

namespace {

using nlohmann::json;

int64_t parseCount(std::string_view text, const std::string& whole) {
    int64_t v = -1;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || v < 0) {
        throw UsageError(
            "--frames takes A:B, frame numbers from 0 with A below B (as in 0:250), "
            "not " +
            whole);
    }
    return v;
}

json rational(Rational r) { return json::array({r.num, r.den}); }
Rational rational(const json& j) {
    return Rational{j.at(0).get<int32_t>(), j.at(1).get<int32_t>()};
}
bool same(Rational a, Rational b) { return a.num == b.num && a.den == b.den; }
std::string text(Rational r) { return std::to_string(r.num) + "/" + std::to_string(r.den); }

// Frame times as runs [first, step, count]: a clip at a constant rate is
// one run, however long the chunk.
json stampRuns(const std::vector<int64_t>& stamps) {
    json runs = json::array();
    for (size_t i = 0; i < stamps.size();) {
        const int64_t step = i + 1 < stamps.size() ? stamps[i + 1] - stamps[i] : 0;
        size_t n = 1;
        while (i + n < stamps.size() && stamps[i + n] - stamps[i + n - 1] == step) ++n;
        runs.push_back(json::array({stamps[i], step, n}));
        i += n;
    }
    return runs;
}
// At most `limit` stamps: a record cannot make the reader allocate more
// than its range holds.
std::vector<int64_t> stampsOf(const json& runs, int64_t limit) {
    std::vector<int64_t> stamps;
    for (const json& run : runs) {
        const auto first = run.at(0).get<int64_t>();
        const auto step = run.at(1).get<int64_t>();
        const auto n = run.at(2).get<int64_t>();
        if (n < 1 || n > limit - static_cast<int64_t>(stamps.size())) return {};
        for (int64_t k = 0; k < n; ++k) stamps.push_back(first + k * step);
    }
    return stamps;
}

}  // namespace

FrameRange parseFrameRange(const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) parseCount("", text);
    FrameRange r{parseCount(std::string_view(text).substr(0, colon), text),
                 parseCount(std::string_view(text).substr(colon + 1), text)};
    if (r.end <= r.first) parseCount("", text);
    return r;
}

std::string formatFrameRange(const FrameRange& range) {
    return std::to_string(range.first) + ":" + std::to_string(range.end);
}

std::vector<FrameRange> splitFrames(int64_t total, int64_t chunks, int64_t chunkFrames) {
    std::vector<FrameRange> out;
    if (total <= 0) return out;
    if (chunkFrames > 0) {
        for (int64_t a = 0; a < total; a += chunkFrames)
            out.push_back({a, std::min(total, a + chunkFrames)});
        return out;
    }
    chunks = std::clamp<int64_t>(chunks, 1, total);
    for (int64_t i = 0; i < chunks; ++i)
        out.push_back({i * total / chunks, (i + 1) * total / chunks});
    return out;
}

bool carriesStateAcrossFrames(const std::string& effectName) {
    return effectName == "Aged Film" || effectName == "Incognito";
}

std::string chunkRecordJson(const ChunkRecord& c) {
    const json j = {
        {"effect", c.effect},
        {"params", c.params},
        {"format", c.format},
        {"span", c.span},
        {"displayAspect", c.displayAspect},
        {"pictureAspect", c.pictureAspect},
        {"input", c.input},
        {"total", c.total},
        {"size", json::array({c.width, c.height})},
        {"frameRate", rational(c.frameRate)},
        {"timeBase", rational(c.timeBase)},
        {"sampleAspect", rational(c.sampleAspect)},
        {"colour",
         json::array({c.colour.space, c.colour.primaries, c.colour.transfer, c.colour.fullRange})},
        {"sourcePixelFormat", c.sourcePixelFormat},
        {"frames", json::array({c.range.first, c.range.end})},
        {"stamps", stampRuns(c.stamps)},
    };
    return j.dump();
}

std::optional<ChunkRecord> parseChunkRecord(const std::string& text) {
    const json j = json::parse(text, nullptr, false);
    if (j.is_discarded() || !j.is_object()) return std::nullopt;
    try {
        ChunkRecord c;
        c.effect = j.at("effect").get<std::string>();
        c.params = j.at("params").get<std::vector<std::string>>();
        c.format = j.at("format").get<std::string>();
        c.span = j.at("span").get<std::string>();
        c.displayAspect = j.at("displayAspect").get<std::string>();
        c.pictureAspect = j.at("pictureAspect").get<std::string>();
        c.input = j.at("input").get<std::string>();
        c.total = j.at("total").get<int64_t>();
        c.width = j.at("size").at(0).get<int32_t>();
        c.height = j.at("size").at(1).get<int32_t>();
        c.frameRate = rational(j.at("frameRate"));
        c.timeBase = rational(j.at("timeBase"));
        c.sampleAspect = rational(j.at("sampleAspect"));
        const json& colour = j.at("colour");
        c.colour = ColourTags{colour.at(0).get<int32_t>(), colour.at(1).get<int32_t>(),
                              colour.at(2).get<int32_t>(), colour.at(3).get<bool>()};
        c.sourcePixelFormat = j.at("sourcePixelFormat").get<int32_t>();
        c.range =
            FrameRange{j.at("frames").at(0).get<int64_t>(), j.at("frames").at(1).get<int64_t>()};
        c.stamps = stampsOf(j.at("stamps"), c.range.end - c.range.first);
        if (c.range.first < 0 || c.range.end <= c.range.first || c.range.end > c.total ||
            static_cast<int64_t>(c.stamps.size()) != c.range.end - c.range.first)
            return std::nullopt;
        return c;
    } catch (const json::exception&) {
        return std::nullopt;
    }
}

std::string chunkMismatch(const ChunkRecord& a, const ChunkRecord& b) {
    auto differs = [](const std::string& what, const std::string& x, const std::string& y) {
        return what + " " + (x.empty() ? "(none)" : x) + ", not " + (y.empty() ? "(none)" : y);
    };
    if (a.effect != b.effect) return differs("effect", b.effect, a.effect);
    if (a.params != b.params) {
        auto list = [](const std::vector<std::string>& p) {
            std::string s;
            for (const std::string& v : p) s += (s.empty() ? "-p " : " -p ") + v;
            return s;
        };
        return differs("parameters", list(b.params), list(a.params));
    }
    if (a.format != b.format) return differs("format", b.format, a.format);
    if (a.width != b.width || a.height != b.height) {
        return differs("size", std::to_string(b.width) + "x" + std::to_string(b.height),
                       std::to_string(a.width) + "x" + std::to_string(a.height));
    }
    if (a.span != b.span) return differs("--span", b.span, a.span);
    if (a.displayAspect != b.displayAspect)
        return differs("--display-aspect", b.displayAspect, a.displayAspect);
    if (a.pictureAspect != b.pictureAspect)
        return differs("--picture-aspect", b.pictureAspect, a.pictureAspect);
    if (!same(a.timeBase, b.timeBase))
        return differs("time base", text(b.timeBase), text(a.timeBase));
    if (!same(a.frameRate, b.frameRate))
        return differs("frame rate", text(b.frameRate), text(a.frameRate));
    if (a.input != b.input) return differs("input", b.input, a.input);
    if (a.total != b.total) {
        return differs("clip length", std::to_string(b.total) + " frames",
                       std::to_string(a.total) + " frames");
    }
    if (!same(a.sampleAspect, b.sampleAspect) || a.sourcePixelFormat != b.sourcePixelFormat ||
        a.colour.space != b.colour.space || a.colour.primaries != b.colour.primaries ||
        a.colour.transfer != b.colour.transfer || a.colour.fullRange != b.colour.fullRange)
        return "another source picture description (sample aspect, pixel format or colour)";
    return {};
}

ChunkWindow startChunk(Source& src, const RenderRequest& rq, const std::string& effectName,
                       const Span& span, const std::string& outputPath) {
    if (src.kind == Source::Kind::Video && src.streamed()) {
        throw UsageError(
            "--frames needs a file to read: standard input cannot be split into "
            "chunks");
    }
    std::string ext = std::filesystem::path(outputPath).extension().string();
    for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    if (ext != ".mkv" || !rq.codec.empty() || !rq.pixelFormat.empty()) {
        throw UsageError(
            "a chunk (--frames) is written losslessly as FFV1 in Matroska: give "
            "-o NAME.mkv, without --codec or --pix-fmt");
    }
    ChunkWindow w;
    w.range = parseFrameRange(*rq.frames);
    const auto total = static_cast<int64_t>(src.times.size());
    if (w.range.first >= total) {
        throw UsageError("--frames " + *rq.frames + " starts past the end of " + src.name +
                         ", which has " + std::to_string(total) +
                         " frames (0:" + std::to_string(total) + ")");
    }
    w.range.end = std::min(w.range.end, total);
    w.replay = carriesStateAcrossFrames(effectName);
    if (w.range.first == 0) return w;
    const size_t first = static_cast<size_t>(w.range.first);
    w.spanBefore = static_cast<size_t>(
        std::count_if(src.times.begin(), src.times.begin() + static_cast<ptrdiff_t>(first),
                      [&](double t) { return span.contains(t); }));
    w.nextIndex = w.range.first;
    if (src.generated()) {
        src.next = w.range.first;
    } else {
        // Decoding starts at the key frame before the range; the frames
        // before it are decoded only to reach it.
        w.startTime = src.times[first];
        if (!src.reader->seekBefore(w.startTime)) {
            w.startTime = -1.0;
            w.nextIndex = 0;
        }
    }
    return w;
}

ChunkRecord makeChunkRecord(const Source& src, const RenderRequest& rq,
                            const std::string& effectName, const ChunkWindow& window,
                            const ColourTags& colour, int32_t sourcePixelFormat) {
    ChunkRecord c;
    c.effect = effectName;
    c.params = rq.params;
    c.format = rq.format;
    c.span = rq.span.value_or("");
    c.displayAspect = rq.displayAspect.value_or("");
    c.pictureAspect = rq.pictureAspect.value_or("");
    c.input = rq.input.empty() ? "" : std::filesystem::path(rq.input).filename().string();
    c.total = static_cast<int64_t>(src.times.size());
    c.width = src.width;
    c.height = src.height;
    c.frameRate = src.frameRate;
    c.timeBase = src.timeBase;
    c.sampleAspect = src.sampleAspect;
    c.colour = colour;
    c.sourcePixelFormat = sourcePixelFormat;
    c.range = window.range;
    const double perSecond =
        src.timeBase.known() ? static_cast<double>(src.timeBase.den) / src.timeBase.num : 1.0;
    for (int64_t k = c.range.first; k < c.range.end; ++k)
        c.stamps.push_back(std::llround(src.times[static_cast<size_t>(k)] * perSecond));
    return c;
}

}  // namespace reelfx::tool
