#include "host/names.h"

#include <algorithm>
#include <cctype>

namespace reelfx {

namespace {

char lowerChar(char c) { return static_cast<char>(std::tolower(static_cast<unsigned char>(c))); }

}  // namespace

bool equalsIgnoreCase(std::string_view a, std::string_view b) {
    return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
               return lowerChar(x) == lowerChar(y);
           });
}

std::string toLower(std::string_view s) {
    std::string out(s);
    for (char& c : out) c = lowerChar(c);
    return out;
}

std::string effectSlug(std::string_view name, char separator) {
    std::string out;
    for (const char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c))) {
            out += lowerChar(c);
        } else if (!out.empty() && out.back() != separator) {
            out += separator;
        }
    }
    while (!out.empty() && out.back() == separator) out.pop_back();
    return out;
}

}  // namespace reelfx
