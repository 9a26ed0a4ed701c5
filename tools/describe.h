// The catalogue and an effect's parameters as text for people and as JSON
// for scripts (`reelfx list`, `reelfx info`).
#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "host/host.h"

namespace reelfx::tool {

std::string listText(const std::vector<EffectInfo>& catalogue);
nlohmann::json listJson(const std::vector<EffectInfo>& catalogue);

// `frameWidth` x `frameHeight` is the frame the instance was created for
// (the crop effects take their maxima from it).
std::string infoText(const EffectInfo& effect, const std::vector<ParameterInfo>& params,
                     int32_t frameWidth, int32_t frameHeight);
nlohmann::json infoJson(const EffectInfo& effect, const std::vector<ParameterInfo>& params,
                        int32_t frameWidth, int32_t frameHeight);

}  // namespace reelfx::tool
