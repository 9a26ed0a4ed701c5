// `reelfx join`: checks that a set of chunks are the parts of one render
// with nothing missing and nothing twice, then writes them as one file. A
// Matroska output takes the chunks' FFV1 packets as they are; any other
// output decodes them and encodes once, as `reelfx render` would. Audio,
// subtitles and tags come from --audio-from, the clip the chunks came from.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <filesystem>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <stdexcept>

#include "tools/av_support.h"
#include "tools/chunk_meta.h"
#include "tools/farm.h"
#include "tools/output_file.h"
#include "tools/params.h"
#include "tools/video_reader.h"
#include "tools/video_writer.h"

namespace reelfx::tool {

namespace {

namespace fs = std::filesystem;

struct Input {
    AVFormatContext* ic = nullptr;
    Input() = default;
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input() { avformat_close_input(&ic); }
};

struct Packet {
    AVPacket* p = av_packet_alloc();
    Packet() {
        if (!p) throw std::bad_alloc();
    }
    Packet(const Packet&) = delete;
    Packet& operator=(const Packet&) = delete;
    ~Packet() { av_packet_free(&p); }
};

void openInput(Input& in, const std::string& path) {
    int r = avformat_open_input(&in.ic, path.c_str(), nullptr, nullptr);
    if (r >= 0) r = avformat_find_stream_info(in.ic, nullptr);
    if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (r < 0) throw std::runtime_error("cannot read " + path + ": " + avError(r));
}

[[noreturn]] void refuse(const std::string& why) {
    throw std::runtime_error("cannot join: " + why + "; nothing written");
}

double secondsOf(int64_t ts, AVRational tb) { return static_cast<double>(ts) * tb.num / tb.den; }

// Tags that describe the file they were read from, not the one written.
void copyTags(AVDictionary** out, const AVDictionary* in) {
    if (av_dict_copy(out, in, 0) < 0) throw std::bad_alloc();
    for (const char* key :
         {"encoder", "DURATION", "NUMBER_OF_FRAMES", "NUMBER_OF_BYTES", "BPS", "_STATISTICS_TAGS",
          "_STATISTICS_WRITING_APP", "_STATISTICS_WRITING_DATE_UTC", "major_brand", "minor_version",
          "compatible_brands", kChunkTag}) {
        if (av_dict_set(out, key, nullptr, 0) < 0) throw std::bad_alloc();
    }
}

struct Chunk {
    std::string path;
    ChunkRecord record;
    std::vector<uint8_t> extradata;
};

// A chunk's record, and a count of the frames it really holds.
Chunk readChunk(const std::string& path) {
    std::error_code ec;
    if (!fs::exists(path, ec)) refuse("the chunk " + path + " is missing");
    Input in;
    openInput(in, path);
    const AVDictionaryEntry* tag = av_dict_get(in.ic->metadata, kChunkTag, nullptr, 0);
    if (!tag) refuse(path + " is not a chunk written by reelfx render --frames");
    std::optional<ChunkRecord> record = parseChunkRecord(tag->value);
    if (!record) {
        refuse(path +
               " holds a chunk record this reelfx cannot read (damaged, or written by "
               "another version)");
    }
    const int vs = av_find_best_stream(in.ic, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    if (vs < 0) refuse(path + " holds no video");
    Chunk c{path, std::move(*record), {}};
    const AVCodecParameters* par = in.ic->streams[vs]->codecpar;
    if (par->extradata) c.extradata.assign(par->extradata, par->extradata + par->extradata_size);
    Packet pkt;
    int64_t frames = 0;
    bool damaged = false;
    while (true) {
        const int r = av_read_frame(in.ic, pkt.p);
        if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
        if (r < 0) {
            damaged = r != AVERROR_EOF;
            break;
        }
        if (pkt.p->stream_index == vs) {
            ++frames;
            if (pkt.p->flags & AV_PKT_FLAG_CORRUPT) damaged = true;
        }
        av_packet_unref(pkt.p);
    }
    const int64_t expected = c.record.range.end - c.record.range.first;
    if (frames != expected || damaged) {
        refuse(path + " is truncated or damaged: it holds " + std::to_string(frames) + " of the " +
               std::to_string(expected) + " frames of its range " +
               formatFrameRange(c.record.range));
    }
    return c;
}

// The first problem of a set: chunks of another render, frames missing or
// rendered twice. Leaves the chunks in frame order.
void checkSet(std::vector<Chunk>& chunks) {
    for (size_t i = 1; i < chunks.size(); ++i) {
        const std::string why = chunkMismatch(chunks[0].record, chunks[i].record);
        if (!why.empty()) {
            refuse(chunks[i].path + " is not part of the same render as " + chunks[0].path +
                   ": it has " + why);
        }
    }
    std::stable_sort(chunks.begin(), chunks.end(), [](const Chunk& a, const Chunk& b) {
        return a.record.range.first < b.record.range.first;
    });
    int64_t expected = 0;
    const Chunk* previous = nullptr;
    for (const Chunk& c : chunks) {
        const FrameRange r = c.record.range;
        if (r.first > expected) {
            refuse("the chunk of frames " + formatFrameRange({expected, r.first}) +
                   " is missing (" +
                   (previous ? "between " + previous->path + " and " : "before ") + c.path + ")");
        }
        if (r.first < expected) {
            refuse(c.path + " (frames " + formatFrameRange(r) + ") overlaps " + previous->path +
                   " (frames " + formatFrameRange(previous->record.range) + ")");
        }
        expected = r.end;
        previous = &c;
    }
    const int64_t total = chunks[0].record.total;
    if (expected < total) {
        refuse("the chunk of frames " + formatFrameRange({expected, total}) +
               " is missing (after " + previous->path + ")");
    }
}

// The clip the chunks came from: its packets other than the video, handed
// out in time order as the video is written.
struct AudioSource {
    Input in;
    int32_t video = -1;
    std::map<int32_t, int32_t> copied;  // input stream -> output stream
    Packet pkt;
    bool pending = false, ended = false;
};
using PacketWrite = std::function<void(AVPacket*, const AVStream*, int32_t)>;

// Writes the copied packets that lie before `seconds`.
void pump(AudioSource* a, double seconds, const PacketWrite& write) {
    while (a && !a->ended) {
        if (!a->pending) {
            const int r = av_read_frame(a->in.ic, a->pkt.p);
            if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
            if (r < 0) {
                a->ended = true;
                return;
            }
            if (!a->copied.count(a->pkt.p->stream_index)) {
                av_packet_unref(a->pkt.p);
                continue;
            }
            a->pending = true;
        }
        const AVStream* st = a->in.ic->streams[a->pkt.p->stream_index];
        const int64_t ts = a->pkt.p->dts != AV_NOPTS_VALUE ? a->pkt.p->dts : a->pkt.p->pts;
        if (ts != AV_NOPTS_VALUE && secondsOf(ts, st->time_base) > seconds) return;
        write(a->pkt.p, st, a->copied.at(a->pkt.p->stream_index));
        av_packet_unref(a->pkt.p);
        a->pending = false;
    }
}

struct Output {
    AVFormatContext* oc = nullptr;
    bool open = false;
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    ~Output() {
        if (open) avio_closep(&oc->pb);
        avformat_free_context(oc);
    }
};

void copyStream(AVFormatContext* oc, const AVStream* in) {
    AVStream* st = avformat_new_stream(oc, nullptr);
    if (!st || avcodec_parameters_copy(st->codecpar, in->codecpar) < 0) throw std::bad_alloc();
    st->codecpar->codec_tag = 0;
    st->time_base = in->time_base;
    st->avg_frame_rate = in->avg_frame_rate;
    st->sample_aspect_ratio = in->sample_aspect_ratio;
    st->disposition = in->disposition;
    copyTags(&st->metadata, in->metadata);
    for (int i = 0; i < in->nb_side_data; ++i) {
        const AVPacketSideData& sd = in->side_data[i];
        uint8_t* data = av_stream_new_side_data(st, sd.type, sd.size);
        if (!data) throw std::bad_alloc();
        std::memcpy(data, sd.data, sd.size);
    }
}

void check(int r, const std::string& path) {
    if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
    if (r < 0) throw std::runtime_error("cannot write " + path + ": " + avError(r));
}

// Matroska from Matroska: the chunks' packets as they are.
void joinByCopy(const std::vector<Chunk>& chunks, AudioSource* audio, const std::string& path,
                const std::string& finalName) {
    Output o;
    check(avformat_alloc_output_context2(&o.oc, nullptr, "matroska", path.c_str()), finalName);
    Input first;
    openInput(first, chunks[0].path);
    const int vs = av_find_best_stream(first.ic, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    copyStream(o.oc, first.ic->streams[vs]);
    copyTags(&o.oc->metadata, audio ? audio->in.ic->metadata : first.ic->metadata);
    for (unsigned i = 0; audio && i < audio->in.ic->nb_streams; ++i) {
        const AVStream* st = audio->in.ic->streams[i];
        const AVMediaType type = st->codecpar->codec_type;
        if (static_cast<int32_t>(i) == audio->video ||
            (type != AVMEDIA_TYPE_AUDIO && type != AVMEDIA_TYPE_SUBTITLE) ||
            avformat_query_codec(o.oc->oformat, st->codecpar->codec_id, FF_COMPLIANCE_NORMAL) != 1)
            continue;
        audio->copied[static_cast<int32_t>(i)] = static_cast<int32_t>(o.oc->nb_streams);
        copyStream(o.oc, st);
    }
    check(avio_open(&o.oc->pb, path.c_str(), AVIO_FLAG_WRITE), finalName);
    o.open = true;
    check(avformat_write_header(o.oc, nullptr), finalName);
    const PacketWrite write = [&](AVPacket* p, const AVStream* in, int32_t out) {
        av_packet_rescale_ts(p, in->time_base, o.oc->streams[out]->time_base);
        p->stream_index = out;
        p->pos = -1;
        check(av_interleaved_write_frame(o.oc, p), finalName);
    };
    Packet pkt;
    for (const Chunk& c : chunks) {
        Input in;
        openInput(in, c.path);
        const int cvs = av_find_best_stream(in.ic, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
        while (true) {
            throwIfInterrupted();
            const int r = av_read_frame(in.ic, pkt.p);
            if (r == AVERROR(ENOMEM)) throw std::bad_alloc();
            if (r < 0) break;
            if (pkt.p->stream_index == cvs) {
                const AVStream* st = in.ic->streams[cvs];
                pump(audio, secondsOf(pkt.p->dts, st->time_base), write);
                write(pkt.p, st, 0);
            }
            av_packet_unref(pkt.p);
        }
    }
    pump(audio, std::numeric_limits<double>::infinity(), write);
    check(av_write_trailer(o.oc), finalName);
    o.open = false;
    check(avio_closep(&o.oc->pb), finalName);
}

// Any other output: the chunks decoded and encoded once, as a whole render
// encodes its frames.
void joinByEncoding(const std::vector<Chunk>& chunks, AudioSource* audio, const std::string& path,
                    const std::string& finalName, std::string& description) {
    const ChunkRecord& rec = chunks[0].record;
    const uint32_t fourcc = rec.format == "ayuv" ? kFourccAyuv : kFourccArgb;
    VideoReader first(chunks[0].path);
    // The chunk's own record is not carried over.
    if (av_dict_set(&first.formatContext()->metadata, kChunkTag, nullptr, 0) < 0)
        throw std::bad_alloc();
    VideoOutputSettings s;
    s.path = path;
    s.containerName = finalName;
    s.width = rec.width;
    s.height = rec.height;
    s.frameRate = rec.frameRate;
    s.timeBase = rec.timeBase;
    s.sampleAspect = rec.sampleAspect;
    s.fourcc = fourcc;
    s.colour = rec.colour;
    s.sourcePixelFormat = rec.sourcePixelFormat;
    s.sourceContainer = audio ? audio->in.ic : first.formatContext();
    s.sourceVideoStream = audio ? audio->video : first.videoStream();
    // Stamps are counted from the start of the clip's video.
    int64_t offset = 0;
    if (audio && audio->video >= 0) {
        const AVStream* st = audio->in.ic->streams[audio->video];
        if (st->start_time != AV_NOPTS_VALUE)
            offset = av_rescale_q(st->start_time, st->time_base, toAv(rec.timeBase));
    }
    VideoWriter writer(s);
    if (audio) {
        std::vector<std::string> leftOut;
        audio->copied =
            writer.addCopiedStreams(audio->in.ic, audio->video, true, finalName, leftOut);
    }
    const PacketWrite write = [&](AVPacket* p, const AVStream* in, int32_t out) {
        writer.writePacket(p, in, out);
    };
    for (const Chunk& c : chunks) {
        VideoReader reader(c.path);
        DecodedFrame frame;
        size_t i = 0;
        while (reader.next(frame, fourcc)) {
            throwIfInterrupted();
            if (i == c.record.stamps.size()) break;
            const int64_t pts = c.record.stamps[i++] + offset;
            pump(audio, secondsOf(pts, toAv(rec.timeBase)), write);
            writer.writeFrame(frame.picture, pts);
        }
        if (i != c.record.stamps.size())
            refuse(c.path + " could not be decoded to its end (" + reader.damage() + ")");
    }
    pump(audio, std::numeric_limits<double>::infinity(), write);
    writer.finish();
    description = writer.description();
}

bool sameExtradata(const std::vector<Chunk>& chunks) {
    return std::all_of(chunks.begin(), chunks.end(),
                       [&](const Chunk& c) { return c.extradata == chunks[0].extradata; });
}

std::string lowerExtension(const std::string& path) {
    std::string ext = fs::path(path).extension().string();
    for (char& ch : ext) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
    return ext;
}

void checkNames(const JoinRequest& rq) {
    if (rq.output.empty() || rq.output == "-")
        throw UsageError("join writes a file: give -o NAME.mkv, NAME.mp4, ...");
    if (!knownVideoContainer(rq.output))
        throw UsageError("cannot tell a video format from the name " + rq.output);
    for (const std::string& c : rq.chunks) {
        std::error_code ec;
        if (c == rq.output || fs::equivalent(c, rq.output, ec))
            throw UsageError("the output would overwrite the chunk " + c);
    }
}

}  // namespace

void runJoin(const JoinRequest& rq) {
    checkNames(rq);
    std::vector<Chunk> chunks;
    for (const std::string& path : rq.chunks) chunks.push_back(readChunk(path));
    checkSet(chunks);
    // No output may replace what the join reads, -y or not.
    for (const std::string& path : rq.chunks) protectInput(path);
    if (!rq.audioFrom.empty()) protectInput(rq.audioFrom);
    confirmOverwrite(rq.output);
    std::unique_ptr<AudioSource> audio;
    if (!rq.audioFrom.empty()) {
        audio = std::make_unique<AudioSource>();
        openInput(audio->in, rq.audioFrom);
        audio->video = av_find_best_stream(audio->in.ic, AVMEDIA_TYPE_VIDEO, -1, -1, nullptr, 0);
    }
    OutputFile out(rq.output);
    std::string description = "FFV1 packets copied";
    if (lowerExtension(rq.output) == ".mkv" && sameExtradata(chunks)) {
        joinByCopy(chunks, audio.get(), out.path(), rq.output);
    } else {
        joinByEncoding(chunks, audio.get(), out.path(), rq.output, description);
    }
    out.commit();
    if (!rq.quiet) {
        std::fprintf(stderr,
                     "reelfx: wrote %s: %lld frames from %zu chunks, %zu other stream(s) "
                     "from %s; %s\n",
                     rq.output.c_str(), static_cast<long long>(chunks[0].record.total),
                     chunks.size(), audio ? audio->copied.size() : size_t{0},
                     audio ? rq.audioFrom.c_str() : "nowhere", description.c_str());
    }
}

}  // namespace reelfx::tool
