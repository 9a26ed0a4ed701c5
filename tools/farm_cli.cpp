#include "tools/farm_cli.h"

namespace reelfx::tool {

void addFarmCommands(CLI::App& app, FarmCommands& farm,
                     const std::function<void(CLI::App*)>& overwriteFlags) {
    PlanRequest& p = farm.planRequest;
    farm.plan = app.add_subcommand(
        "plan", "Print the frame ranges (A:B, one a line) of a split of a clip into chunks");
    farm.plan->add_option("input", p.input, "The clip to split; none: the built-in test clip");
    CLI::Option* chunks =
        farm.plan->add_option("--chunks", p.chunks, "Split into K near-equal chunks")
            ->type_name("K");
    farm.plan->add_option("--chunk-frames", p.chunkFrames, "Split into chunks of F frames")
        ->type_name("F")
        ->excludes(chunks);
    farm.plan->add_flag("--json", p.json, "Print JSON for scripts, with the total frame count");
    farm.plan->add_option("--size", p.size, "Size of the built-in test clip")->type_name("WxH");
    farm.plan
        ->add_option("--duration", p.duration, "Seconds made from a still or the built-in clip")
        ->type_name("S");
    farm.plan->add_option("--fps", p.fps, "Frame rate of a still or the built-in clip")
        ->type_name("RATE");

    JoinRequest& j = farm.joinRequest;
    farm.join = app.add_subcommand(
        "join",
        "Join the chunks of a split (render --frames) into one video, checking that "
        "they belong together");
    farm.join->add_option("chunks", j.chunks, "The chunks, in any order")->required();
    farm.join
        ->add_option("-o,--output", j.output,
                     ".mkv (the chunks' lossless frames copied), .mp4 (H.264), ... as render "
                     "writes them")
        ->required()
        ->type_name("FILE");
    farm.join
        ->add_option("--audio-from", j.audioFrom,
                     "The clip the chunks were rendered from: its audio, subtitles and tags go "
                     "into the output")
        ->type_name("INPUT");
    farm.join->add_flag("-q,--quiet", j.quiet, "No summary");
    overwriteFlags(farm.join);
}

bool runFarmCommand(const FarmCommands& farm) {
    if (*farm.plan) {
        runPlan(farm.planRequest);
    } else if (*farm.join) {
        runJoin(farm.joinRequest);
    } else {
        return false;
    }
    return true;
}

}  // namespace reelfx::tool
