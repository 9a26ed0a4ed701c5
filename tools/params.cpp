#include "tools/params.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <limits>
#include <numeric>

#include "host/names.h"

extern "C" {
#include <libavutil/log.h>
#include <libavutil/parseutils.h>
}

namespace reelfx::tool {

namespace {

std::string_view trim(std::string_view s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.front()))) s.remove_prefix(1);
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.remove_suffix(1);
    return s;
}

std::string quoted(std::string_view s) { return "\"" + std::string(s) + "\""; }

std::string quotedList(const std::vector<std::string>& names) {
    std::string out;
    for (size_t i = 0; i < names.size(); ++i) {
        if (i) out += ", ";
        out += quoted(names[i]);
    }
    return out;
}

size_t editDistance(std::string_view a, std::string_view b) {
    std::vector<size_t> row(b.size() + 1);
    for (size_t j = 0; j <= b.size(); ++j) row[j] = j;
    for (size_t i = 1; i <= a.size(); ++i) {
        size_t diagonal = row[0];
        row[0] = i;
        for (size_t j = 1; j <= b.size(); ++j) {
            const size_t above = row[j];
            row[j] = std::min({row[j] + 1, row[j - 1] + 1, diagonal + (a[i - 1] != b[j - 1])});
            diagonal = above;
        }
    }
    return row[b.size()];
}

// Index of `query` in `names`: exact, then ignoring case, then ignoring case,
// spaces and punctuation; -1 when none matches.
int32_t matchName(std::string_view query, const std::vector<std::string>& names) {
    for (size_t i = 0; i < names.size(); ++i) {
        if (names[i] == query) return static_cast<int32_t>(i);
    }
    for (size_t i = 0; i < names.size(); ++i) {
        if (equalsIgnoreCase(names[i], query)) return static_cast<int32_t>(i);
    }
    const std::string norm = normalizeName(query);
    if (norm.empty()) return -1;
    for (size_t i = 0; i < names.size(); ++i) {
        if (normalizeName(names[i]) == norm) return static_cast<int32_t>(i);
    }
    return -1;
}

std::string didYouMean(std::string_view query, const std::vector<std::string>& names) {
    const auto near = nearestNames(query, names);
    return near.empty() ? std::string() : "; did you mean " + quotedList(near) + "?";
}

std::optional<int64_t> parseWhole(std::string_view text) {
    const auto v = parseNumber(text);
    if (!v || *v != std::trunc(*v) || std::fabs(*v) > 9007199254740992.0) return std::nullopt;
    return static_cast<int64_t>(*v);
}

}  // namespace

std::string normalizeName(std::string_view name) {
    std::string out;
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return out;
}

std::vector<std::string> nearestNames(std::string_view query, const std::vector<std::string>& names,
                                      size_t limit) {
    const std::string q = normalizeName(query);
    if (q.empty()) return {};
    struct Candidate {
        size_t distance;
        size_t order;
    };
    std::vector<Candidate> found;
    const size_t allowed = std::max<size_t>(2, q.size() / 3);
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string n = normalizeName(names[i]);
        size_t d = editDistance(q, n);
        // A fragment of a name ("fade", "radius") suggests every name holding it.
        if (q.size() >= 3 && n.find(q) != std::string::npos) d = std::min<size_t>(d, 1);
        if (d <= allowed) found.push_back({d, i});
    }
    std::stable_sort(found.begin(), found.end(), [](const Candidate& a, const Candidate& b) {
        return a.distance < b.distance;
    });
    std::vector<std::string> out;
    for (size_t i = 0; i < found.size() && i < limit; ++i) out.push_back(names[found[i].order]);
    return out;
}

int32_t findEffect(const std::vector<EffectInfo>& catalogue, std::string_view query) {
    std::vector<std::string> names;
    for (const EffectInfo& e : catalogue) names.push_back(e.name);
    const std::string_view q = trim(query);
    if (!q.empty() &&
        std::all_of(q.begin(), q.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        if (const auto i = parseWhole(q); i && *i < static_cast<int64_t>(catalogue.size())) {
            return catalogue[static_cast<size_t>(*i)].index;
        }
    }
    const int32_t i = matchName(q, names);
    if (i >= 0) return catalogue[static_cast<size_t>(i)].index;
    throw UsageError("unknown effect " + quoted(query) + didYouMean(q, names) +
                     " ('reelfx list' shows all " + std::to_string(catalogue.size()) + " effects)");
}

std::optional<double> parseNumber(std::string_view text) {
    text = trim(text);
    if (!text.empty() && text.front() == '+') text.remove_prefix(1);
    if (text.empty()) return std::nullopt;
    double v = 0.0;
    const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), v);
    if (ec != std::errc() || end != text.data() + text.size() || !std::isfinite(v))
        return std::nullopt;
    return v;
}

std::optional<uint32_t> parseColour(std::string_view text) {
    text = trim(text);
    if (text.empty()) return std::nullopt;
    auto hex = [](std::string_view digits, size_t minDigits,
                  size_t maxDigits) -> std::optional<uint32_t> {
        if (digits.size() < minDigits || digits.size() > maxDigits) return std::nullopt;
        uint32_t v = 0;
        const auto [end, ec] = std::from_chars(digits.data(), digits.data() + digits.size(), v, 16);
        if (ec != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
        return v;
    };
    // Our own forms first, where they differ from libavutil's: alpha leads
    // in "#AARRGGBB" and "0xAARRGGBB", and plain digits are a number.
    if (text.front() == '#' && text.size() == 9) return hex(text.substr(1), 8, 8);
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        return hex(text.substr(2), 1, 8);
    }
    if (std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; })) {
        const auto v = parseWhole(text);
        if (!v || *v > 0xFFFFFFFFll) return std::nullopt;
        return static_cast<uint32_t>(*v);
    }
    // "#RGB" stands for "#RRGGBB"; everything else (names with an optional
    // "@alpha", "#RRGGBB") is libavutil's.
    std::string colour(text);
    if (colour.size() == 4 && colour[0] == '#' && hex(text.substr(1), 3, 3)) {
        colour = {'#', text[1], text[1], text[2], text[2], text[3], text[3]};
    }
    // "random" would make two runs differ.
    if (toLower(colour).rfind("random", 0) == 0) return std::nullopt;
    uint8_t rgba[4] = {};
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);  // a mistake is reported by the caller
    const int r = av_parse_color(rgba, colour.c_str(), -1, nullptr);
    av_log_set_level(level);
    if (r < 0) return std::nullopt;
    return uint32_t{rgba[3]} << 24 | uint32_t{rgba[0]} << 16 | uint32_t{rgba[1]} << 8 | rgba[2];
}

std::string formatNumber(double value) {
    char buf[64];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    return ec == std::errc() ? std::string(buf, end) : std::string("?");
}

std::string formatColour(uint32_t argb) {
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string out = "#";
    for (int shift = 28; shift >= 0; shift -= 4) out += kDigits[(argb >> shift) & 0xF];
    return out;
}

const char* kindName(int32_t kind) {
    switch (kind) {
        case kParameterKindReal: return "real";
        case kParameterKindChoice: return "choice";
        case kParameterKindColour: return "colour";
        case kParameterKindWhole: return "whole";
        default: return "unknown";
    }
}

std::string describeValue(const ParameterInfo& p, double value) {
    if (p.kind == kParameterKindChoice && value >= 0 && value == std::trunc(value) &&
        value < static_cast<double>(p.choices.size())) {
        return p.choices[static_cast<size_t>(value)];
    }
    if (p.kind == kParameterKindColour && value >= 0 && value <= 4294967295.0 &&
        value == std::trunc(value)) {
        return formatColour(static_cast<uint32_t>(value));
    }
    return formatNumber(value);
}

double parseValue(const ParameterInfo& p, std::string_view rawText) {
    const std::string_view text = trim(rawText);
    switch (p.kind) {
        case kParameterKindChoice: {
            const int32_t i = matchName(text, p.choices);
            if (i >= 0) return i;
            if (const auto n = parseWhole(text);
                n && *n >= 0 && *n < static_cast<int64_t>(p.choices.size())) {
                return static_cast<double>(*n);
            }
            throw UsageError(quoted(p.name) + " takes one of " + quotedList(p.choices) +
                             " (or an index from 0 to " + std::to_string(p.choices.size() - 1) +
                             "), not " + quoted(text));
        }
        case kParameterKindColour: {
            if (const auto c = parseColour(text)) return static_cast<double>(*c);
            throw UsageError(quoted(p.name) +
                             " takes a colour as #RRGGBB, #AARRGGBB, #RGB, a name such as red "
                             "or red@0.5, or a number from 0 to 4294967295, not " +
                             quoted(text));
        }
        case kParameterKindWhole: {
            const auto v = parseNumber(text);
            if (!v || *v != std::trunc(*v) || *v < p.minimum || *v > p.maximum) {
                throw UsageError(quoted(p.name) + " takes a whole number from " +
                                 formatNumber(p.minimum) + " to " + formatNumber(p.maximum) +
                                 ", not " + quoted(text));
            }
            return *v;
        }
        default: {
            const auto v = parseNumber(text);
            if (!v || *v < p.minimum || *v > p.maximum) {
                throw UsageError(quoted(p.name) + " takes a number from " +
                                 formatNumber(p.minimum) + " to " + formatNumber(p.maximum) +
                                 ", not " + quoted(text));
            }
            return *v;
        }
    }
}

ParameterSetting parseSetting(const std::string& effectName,
                              const std::vector<ParameterInfo>& params,
                              std::string_view assignment) {
    const size_t eq = assignment.find('=');
    if (eq == std::string_view::npos) {
        throw UsageError("parameter setting " + quoted(assignment) +
                         " needs NAME=VALUE, as in -p \"Spot Radius=12\"");
    }
    const std::string_view name = trim(assignment.substr(0, eq));
    const std::string_view value = trim(assignment.substr(eq + 1));

    std::vector<std::string> names;
    for (const ParameterInfo& p : params) names.push_back(p.name);
    const int32_t i = matchName(name, names);
    if (i < 0) {
        throw UsageError(quoted(effectName) + " has no parameter " + quoted(name) +
                         didYouMean(name, names) + " (its parameters: " + quotedList(names) + ")");
    }
    const ParameterInfo& p = params[static_cast<size_t>(i)];
    if (value.empty()) {
        throw UsageError("no value given for " + quoted(p.name) + ": write -p \"" + p.name +
                         "=VALUE\"");
    }

    ParameterSetting s{p.index, p.kind, p.name, {}};
    // A choice text is taken whole even if it held '@' or ','; so is a colour
    // with an alpha ("red@0.5": one key would only repeat the constant).
    const bool whole = (p.kind == kParameterKindChoice && matchName(value, p.choices) >= 0) ||
                       (p.kind == kParameterKindColour &&
                        value.find(',') == std::string_view::npos && parseColour(value));
    const bool keyframed = value.find('@') != std::string_view::npos && !whole;
    if (!keyframed) {
        s.keys.push_back({0.0, parseValue(p, value)});
        return s;
    }
    std::string_view rest = value;
    while (true) {
        const size_t comma = rest.find(',');
        const std::string_view key = trim(rest.substr(0, comma));
        const size_t at = key.rfind('@');
        if (at == std::string_view::npos) {
            throw UsageError("keyframe " + quoted(key) + " of " + quoted(p.name) +
                             " needs a position: VALUE@PROGRESS, as in \"" + p.name +
                             "=0.2@0,0.8@1\"");
        }
        const auto t = parseNumber(key.substr(at + 1));
        if (!t || *t < 0.0 || *t > 1.0) {
            throw UsageError("keyframe position " + quoted(trim(key.substr(at + 1))) + " of " +
                             quoted(p.name) + " must be a progress from 0 to 1");
        }
        if (!s.keys.empty() && *t <= s.keys.back().progress) {
            throw UsageError("keyframe positions of " + quoted(p.name) +
                             " must increase: " + formatNumber(*t) + " comes after " +
                             formatNumber(s.keys.back().progress));
        }
        s.keys.push_back({*t, parseValue(p, key.substr(0, at))});
        if (comma == std::string_view::npos) break;
        rest = rest.substr(comma + 1);
    }
    return s;
}

std::vector<ParameterSetting> parseSettings(const std::string& effectName,
                                            const std::vector<ParameterInfo>& params,
                                            const std::vector<std::string>& assignments) {
    std::vector<ParameterSetting> out;
    for (const std::string& a : assignments) {
        ParameterSetting s = parseSetting(effectName, params, a);
        for (const ParameterSetting& earlier : out) {
            if (earlier.slot == s.slot) throw UsageError(quoted(s.name) + " is set twice");
        }
        out.push_back(std::move(s));
    }
    return out;
}

double valueAt(const ParameterSetting& s, double progress) {
    if (s.keys.empty()) return 0.0;
    if (!(progress > s.keys.front().progress)) return s.keys.front().value;
    if (progress >= s.keys.back().progress) return s.keys.back().value;
    size_t k = 1;
    while (s.keys[k].progress <= progress) ++k;
    const Keyframe& a = s.keys[k - 1];
    const Keyframe& b = s.keys[k];
    const double f = (progress - a.progress) / (b.progress - a.progress);
    switch (s.kind) {
        case kParameterKindChoice: return a.value;
        case kParameterKindWhole: return std::round(std::lerp(a.value, b.value, f));
        case kParameterKindColour: {
            const auto ca = static_cast<uint32_t>(a.value);
            const auto cb = static_cast<uint32_t>(b.value);
            uint32_t out = 0;
            for (int shift = 0; shift < 32; shift += 8) {
                const double c =
                    std::round(std::lerp(static_cast<double>((ca >> shift) & 0xFF),
                                         static_cast<double>((cb >> shift) & 0xFF), f));
                out |= static_cast<uint32_t>(c) << shift;
            }
            return static_cast<double>(out);
        }
        default: return std::lerp(a.value, b.value, f);
    }
}

Span parseSpan(std::string_view text) {
    const size_t colon = text.find(':');
    const std::string usage =
        "--span takes START:END in seconds, as in 1.5:4 (either may be left out), not " +
        quoted(text);
    if (colon == std::string_view::npos) throw UsageError(usage);
    Span s;
    const std::string_view a = trim(text.substr(0, colon));
    const std::string_view b = trim(text.substr(colon + 1));
    if (!a.empty()) {
        const auto v = parseNumber(a);
        if (!v || *v < 0) throw UsageError(usage);
        s.start = *v;
    }
    if (!b.empty()) {
        const auto v = parseNumber(b);
        if (!v || *v < 0) throw UsageError(usage);
        s.end = *v;
    }
    if (!(s.start < s.end)) {
        throw UsageError("--span " + std::string(text) + " ends before it starts");
    }
    return s;
}

double parseAspect(std::string_view rawText, const char* option) {
    const std::string text(trim(rawText));
    const std::string usage =
        std::string(option) + " takes a ratio such as 16:9, 4:3 or 1.85, not " + quoted(rawText);
    // A plain number is taken as it is written (libavutil would round it to a
    // fraction); "W:H" with decimals goes to libavutil as "W/H".
    if (const auto v = parseNumber(text)) {
        if (*v <= 0) throw UsageError(usage);
        return *v;
    }
    std::string ratio = text;
    int w = 0, h = 0;
    char extra = 0;
    if (std::sscanf(ratio.c_str(), "%d:%d%c", &w, &h, &extra) != 2) {
        std::replace(ratio.begin(), ratio.end(), ':', '/');
    }
    AVRational q{0, 0};
    const int level = av_log_get_level();
    av_log_set_level(AV_LOG_QUIET);
    const int r = av_parse_ratio(&q, ratio.c_str(), std::numeric_limits<int>::max(), 0, nullptr);
    av_log_set_level(level);
    if (r < 0 || q.num <= 0 || q.den <= 0) throw UsageError(usage);
    return static_cast<double>(q.num) / q.den;
}

PictureAspect parsePictureAspect(std::string_view text) {
    if (trim(text) == "4:3") return {2, 4.0 / 3.0};
    if (trim(text) == "16:9") return {3, 16.0 / 9.0};
    return {0, parseAspect(text, "--picture-aspect")};
}

FrameRate parseFrameRate(std::string_view rawText) {
    const std::string text(trim(rawText));
    const std::string usage =
        "--fps takes a frame rate such as 25, 29.97 or 30000/1001, not " + quoted(rawText);
    AVRational q{0, 0};
    if (text.empty() || av_parse_video_rate(&q, text.c_str()) < 0) throw UsageError(usage);
    FrameRate r{q.num, q.den};
    // The rounded NTSC rates mean the exact ones.
    if (const auto v = parseNumber(text)) {
        for (int32_t k : {24, 30, 48, 60, 120}) {
            if (std::fabs(*v - k * 1000.0 / 1001.0) < 0.005) r = {k * 1000, 1001};
        }
    }
    if (!(r.num > 0 && r.den > 0 && r.value() <= 1000)) throw UsageError(usage);
    return r;
}

Size parseSize(std::string_view rawText) {
    const std::string text(trim(rawText));
    const std::string usage = "--size takes WIDTHxHEIGHT, as in 640x360, not " + quoted(rawText);
    int w = 0, h = 0;
    if (text.empty() || av_parse_video_size(&w, &h, text.c_str()) < 0) throw UsageError(usage);
    if (w < 1 || h < 1 || w > 16384 || h > 16384) throw UsageError(usage);
    return {w, h};
}

}  // namespace reelfx::tool
