// reelfx: list the effects, show their parameters, render pictures and video
// through them, and draw a contact sheet of all of them.
//
// Exit status: 0 done, 1 a file could not be read or written, 2 a mistake on
// the command line, 130 interrupted.

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>
#include <optional>
#include <system_error>

extern "C" {
#include <libavutil/log.h>
}

#include "host/host.h"
#include "tools/builtin_clip.h"
#include "tools/describe.h"
#include "tools/farm_cli.h"
#include "tools/output_file.h"
#include "tools/params.h"
#include "tools/render.h"

namespace {

using namespace reelfx;
using namespace reelfx::tool;

constexpr int kExitFailure = 1;
constexpr int kExitUsage = 2;
constexpr int kExitInterrupted = 130;

// The module is looked for where every host looks (Module::find), with this
// program's own folder as the place beside it.
std::string findModule(const std::string& requested) {
    std::error_code ec;
    const auto self = std::filesystem::read_symlink("/proc/self/exe", ec);
    return Module::find(requested, ec ? std::string() : self.parent_path().string());
}

// Standard output to a full disk or a closed pipe is an error like any
// other file's.
void printOut(const std::string& text) {
    errno = 0;
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size() ||
        std::fflush(stdout) != 0) {
        throw std::runtime_error(std::string("cannot write to standard output: ") +
                                 std::strerror(errno != 0 ? errno : EIO));
    }
}

constexpr const char* kFooter =
    "Exit status: 0 done, 1 a file could not be read or written, 2 a mistake on the command "
    "line, 130 interrupted by SIGINT, SIGTERM or SIGHUP (nothing is left under the output "
    "name). An existing output file is replaced only with -y, or when confirmed on a terminal.";

// Everything the command line sets.
struct CommandLine {
    std::string modulePath;
    bool verbose = false;
    bool json = false;
    std::string infoEffect;
    std::string infoSize = "640x360";
    RenderRequest rq;
    std::optional<double> progress, duration;
    std::optional<std::string> fps;
    std::string span, displayAspect, pictureAspect, size;
    SheetRequest sq;
    bool overwrite = false, neverOverwrite = false;
    CLI::App* list = nullptr;
    CLI::App* info = nullptr;
    CLI::App* render = nullptr;
    CLI::App* sheet = nullptr;
};

void addOverwriteFlags(CLI::App* command, CommandLine& c) {
    CLI::Option* y =
        command->add_flag("-y,--overwrite", c.overwrite, "Replace an existing output file");
    command
        ->add_flag("-n,--no-overwrite", c.neverOverwrite,
                   "Never replace an existing output file (without -y or -n reelfx asks on "
                   "a terminal and refuses elsewhere)")
        ->excludes(y);
}

void addListAndInfo(CLI::App& app, CommandLine& c) {
    c.list = app.add_subcommand("list", "List the effects: index, name, category, tags");
    c.list->add_flag("--json", c.json, "Print JSON for scripts");
    c.info = app.add_subcommand("info",
                                "Show an effect's parameters: kind, range, initial value, choices");
    c.info->add_option("effect", c.infoEffect, "Effect name (any case) or index")->required();
    c.info->add_flag("--json", c.json, "Print JSON for scripts");
    c.info
        ->add_option("--size", c.infoSize,
                     "Frame size the instance is made for (crop maxima follow it)")
        ->capture_default_str()
        ->type_name("WxH");
}

// How the picture is fitted, and what is encoded how.
void addRenderPictureOptions(CLI::App* render, CommandLine& c) {
    RenderRequest& rq = c.rq;
    std::optional<double>& duration = c.duration;
    std::optional<std::string>& fps = c.fps;
    std::string& displayAspect = c.displayAspect;
    std::string& pictureAspect = c.pictureAspect;
    std::string& size = c.size;
    render
        ->add_option("--display-aspect", displayAspect,
                     "Display aspect of the frame (default: its shape)")
        ->type_name("X");
    render
        ->add_option("--picture-aspect", pictureAspect,
                     "Fit the picture by this aspect: 4:3, 16:9 or any ratio N")
        ->type_name("4:3|16:9|N");
    render->add_option("--size", size, "Size of the built-in test clip (default 640x360)")
        ->type_name("WxH");
    render
        ->add_option("--duration", duration,
                     "Seconds of video made from a still or the built-in clip (3)")
        ->type_name("S");
    render
        ->add_option("--fps", fps,
                     "Frame rate of video made from a still or the built-in clip, or of "
                     "numbered pictures read in (25)")
        ->type_name("RATE");
    render->add_option("--codec", rq.codec, "Video encoder (see ffmpeg -encoders)")
        ->type_name("NAME");
    render->add_option("--pix-fmt", rq.pixelFormat, "Pixel format of the encoded video")
        ->type_name("NAME");
    render
        ->add_option("--frames", rq.frames,
                     "Render only source frames A to B-1 (from 0) as a chunk for reelfx join: "
                     "lossless .mkv, no audio, the frames exactly as in a whole render")
        ->type_name("A:B");
    render->add_flag("--no-audio", rq.noAudio,
                     "Leave the input's audio out (subtitles and data are still copied)");
    render->add_flag("-q,--quiet", rq.quiet, "No progress bar, no summary");
    render
        ->add_option("--threads", rq.threads,
                     "Frames rendered at once, each by an instance of its own (default: the cores "
                     "this process may use; effects with shared state use one)")
        ->type_name("N")
        ->check(CLI::Range(1, 1024));
}

void addRender(CLI::App& app, CommandLine& c) {
    CLI::App* render = app.add_subcommand("render", "Render a picture or video through one effect");
    c.render = render;
    RenderRequest& rq = c.rq;
    std::optional<double>& progress = c.progress;
    std::string& span = c.span;
    render->add_option("effect", rq.effect, "Effect name (any case) or index")->required();
    render->add_option("input", rq.input,
                       "Picture or video file (anything FFmpeg reads), numbered pictures such as "
                       "in_%03d.png; - reads standard input as it arrives (YUV4MPEG2, NUT, "
                       "Matroska, ...); none renders the built-in test clip");
    render
        ->add_option("-o,--output", rq.output,
                     ".png, .jpg, .tif, ... for a still; out_%04d.png for numbered pictures; .mp4 "
                     "(H.264 4:2:0), .mkv (lossless FFV1), .mov, .ts, .gif, .webp, ...; - writes "
                     "YUV4MPEG2 to standard output (default: named after input and effect)")
        ->type_name("FILE");
    render
        ->add_option(
            "-p,--param", rq.params,
            "Parameter by display name: -p \"Spot Radius=12\", -p Shape=Round, -p Color=#FF8000, "
            "keyframes over progress -p \"Radius=0.2@0,0.8@1\"")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    render->add_option("--format", rq.format, "Pixels handed to the module")
        ->capture_default_str()
        ->transform(CLI::IsMember({"argb", "ayuv"}, CLI::ignore_case));
    render
        ->add_option("--span", span,
                     "Apply the effect from START to END seconds only (END exclusive)")
        ->type_name("START:END");
    render->add_option("--progress", progress, "Position for a still output, 0 to 1 (default 0.5)")
        ->type_name("T");
    addRenderPictureOptions(render, c);
    addOverwriteFlags(render, c);
}

void addSheet(CLI::App& app, CommandLine& c) {
    SheetRequest& sq = c.sq;
    CLI::App* sheet =
        app.add_subcommand("sheet", "Contact sheet: every effect at its initial parameters");
    c.sheet = sheet;
    sheet->add_option("input", sq.input,
                      "PNG or video (first frame); none uses the built-in test picture");
    sheet->add_option("-o,--output", sq.output, "PNG to write")
        ->capture_default_str()
        ->type_name("FILE");
    sheet->add_option("--progress", sq.progress, "Position every effect is rendered at")
        ->capture_default_str()
        ->type_name("T");
    sheet->add_option("--format", sq.format, "Pixels handed to the module")
        ->capture_default_str()
        ->transform(CLI::IsMember({"argb", "ayuv"}, CLI::ignore_case));
    sheet->add_option("--columns", sq.columns, "Tiles per row")->capture_default_str();
    sheet->add_option("--tile-width", sq.tileWidth, "Width of one tile in pixels")
        ->capture_default_str();
    sheet->add_flag("-q,--quiet", sq.quiet, "No summary");
    addOverwriteFlags(sheet, c);
}

void runCommand(CommandLine& c) {
    Module module(findModule(c.modulePath));
    const std::vector<EffectInfo> catalogue = module.catalogue();
    if (*c.list) {
        printOut(c.json ? listJson(catalogue).dump(2) + "\n" : listText(catalogue));
    } else if (*c.info) {
        const int32_t index = findEffect(catalogue, c.infoEffect);
        const Size frame = parseSize(c.infoSize);
        Instance instance(module, index, frame.width, frame.height);
        const EffectInfo& e = catalogue[static_cast<size_t>(index)];
        printOut(c.json
                     ? infoJson(e, instance.parameters(), frame.width, frame.height).dump(2) + "\n"
                     : infoText(e, instance.parameters(), frame.width, frame.height));
    } else if (*c.render) {
        RenderRequest& rq = c.rq;
        if (!c.span.empty()) rq.span = c.span;
        if (!c.displayAspect.empty()) rq.displayAspect = c.displayAspect;
        if (!c.pictureAspect.empty()) rq.pictureAspect = c.pictureAspect;
        if (!c.size.empty()) rq.size = c.size;
        rq.progress = c.progress;
        rq.duration = c.duration;
        rq.fps = c.fps;
        runRender(module, rq);
    } else if (*c.sheet) {
        runSheet(module, c.sq);
    }
}

// The exit status for the exception being handled, said on standard error.
int reportFailure() {
    try {
        throw;
    } catch (const Interrupted&) {
        std::fprintf(stderr, "\nreelfx: interrupted; nothing written\n");
        return kExitInterrupted;
    } catch (const UsageError& e) {
        std::fprintf(stderr, "reelfx: %s\n", e.what());
        return kExitUsage;
    } catch (const std::bad_alloc&) {
        std::fprintf(stderr, "reelfx: out of memory\n");
        return kExitFailure;
    } catch (const std::system_error& e) {
        // A thread that cannot start lacks memory for its stack.
        const bool memory = e.code() == std::errc::resource_unavailable_try_again ||
                            e.code() == std::errc::not_enough_memory;
        std::fprintf(stderr, "reelfx: %s%s\n", memory ? "out of memory: " : "", e.what());
        return kExitFailure;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "reelfx: %s\n", e.what());
        return kExitFailure;
    }
}

}  // namespace

// Outside the handled part, only a mistake in the option set-up or running
// out of memory while making it can throw: std::terminate's report is the
// right end for both.
// NOLINTNEXTLINE(bugprone-exception-escape)
int main(int argc, char** argv) {
    CLI::App app{"reelfx: apply the reelfx video effects to pictures and video", "reelfx"};
    app.footer(kFooter);
    app.require_subcommand(1);
    CommandLine c;
    app.add_option("--module", c.modulePath,
                   "The effects module to load (default: libreelfx.so beside reelfx)")
        ->type_name("PATH");
    app.add_flag("-v,--verbose", c.verbose, "Show FFmpeg's own messages too");
    addListAndInfo(app, c);
    addRender(app, c);
    addSheet(app, c);
    FarmCommands farm;
    addFarmCommands(app, farm, [&c](CLI::App* command) { addOverwriteFlags(command, c); });
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& e) {
        const int status = app.exit(e);
        return status == 0 ? 0 : kExitUsage;
    }

    // reelfx reports what went wrong itself; FFmpeg's lower-level messages
    // only on request.
    struct FontCaches {
        ~FontCaches() { releaseFontCaches(); }
    } fontCaches;
    av_log_set_level(c.verbose ? AV_LOG_INFO : AV_LOG_FATAL);
    installInterruptHandlers();
    setOverwritePolicy(c.overwrite        ? Overwrite::Always
                       : c.neverOverwrite ? Overwrite::Never
                                          : Overwrite::Ask);
    try {
        if (runFarmCommand(farm)) return 0;
        runCommand(c);
    } catch (...) {
        return reportFailure();
    }
    return 0;
}
