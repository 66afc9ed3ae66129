#include "codecs.h"
#include "measure.h"
#include "rows.h"

#include <cstdio>

namespace kestrine::bench {

void printDecoding(const std::string& logData) {
    const std::vector<Block> blocks = logBlocksBelow(logData);
    for (const Codec& codec : codecs()) {
        std::printf("%s\t%.6f\n", codec.decoder.c_str(), cpuOf([&] { decodeAll(codec, blocks); }));
    }
}

} // namespace kestrine::bench
