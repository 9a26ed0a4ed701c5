// Prints the file-name slug of every effect in the catalogue, one a line in
// index order ("aged_film", "incognito", ...). CMake builds and runs it while
// configuring, so the frei0r plug-ins and their Kdenlive descriptions follow
// the catalogue without a list of their own.
#include <cstdio>

#include "host/names.h"
#include "plugin/catalogue.h"

int main() {
    for (const EffectDescriptor* d = queryCatalogue(0); d; d = d->next) {
        std::printf("%s\n", reelfx::effectSlug(d->name, '_').c_str());
    }
    return 0;
}
