// Text helpers every host around the module needs: comparing names the way
// users type them and turning an effect's name into a file name.
#pragma once

#include <string>
#include <string_view>

namespace reelfx {

// ASCII letters compared without regard to case ("spot radius" matches
// "Spot Radius"); other bytes must be equal.
bool equalsIgnoreCase(std::string_view a, std::string_view b);

// `s` with its ASCII letters in lower case.
std::string toLower(std::string_view s);

// An effect's name as a file name: letters and digits in lower case, every
// other run of characters one `separator`, none at either end.
// "Multi-Prism Lens" is "multi-prism-lens" with '-' (the tool's output
// names) and "multi_prism_lens" with '_' (the plug-ins and their
// descriptions).
std::string effectSlug(std::string_view name, char separator);

}  // namespace reelfx
