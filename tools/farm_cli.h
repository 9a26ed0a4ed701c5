// The command line of `reelfx plan` and `reelfx join`, registered on the
// program's CLI11 application.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "tools/farm.h"

namespace reelfx::tool {

struct FarmCommands {
    CLI::App* plan = nullptr;
    CLI::App* join = nullptr;
    PlanRequest planRequest;
    JoinRequest joinRequest;
};

// `overwriteFlags` adds the program's -y and -n to a subcommand.
void addFarmCommands(CLI::App& app, FarmCommands& farm,
                     const std::function<void(CLI::App*)>& overwriteFlags);
// Runs plan or join when one was asked for; false otherwise.
bool runFarmCommand(const FarmCommands& farm);

}  // namespace reelfx::tool
