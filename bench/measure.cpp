#include "measure.h"

#include <cstdio>
#include <cstdlib>

namespace kestrine::bench {

void printRatios(int rounds, const std::string& what, const Measured& measured,
                 const std::vector<Reference>& references) {
    std::vector<std::vector<double>> ratios(references.size());
    for (int round = 0; round <= rounds; ++round) {
        const double seconds = measured();
        for (size_t i = 0; i < references.size(); ++i) {
            const double reference = references[i].measured();
            if (round > 0) {
                ratios[i].push_back(seconds / reference);
            }
        }
    }
    for (size_t i = 0; i < references.size(); ++i) {
        std::printf("%s\t%s", what.c_str(), references[i].name.c_str());
        for (const double ratio : ratios[i]) {
            std::printf("\t%.6f", ratio);
        }
        std::printf("\n");
    }
    std::fflush(stdout);
}

void require(bool good, const char* what) {
    if (!good) {
        std::fprintf(stderr, "cannot %s\n", what);
        std::exit(1);
    }
}

} // namespace kestrine::bench
