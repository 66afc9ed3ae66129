// What may happen to a file of the statistics tree.
#pragma once

#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

namespace kestrine::test {

using Bytes = std::vector<uint8_t>;

// A file's content, empty when it is not there; writing makes its directories.
[[nodiscard]] Bytes bytesOf(const std::string& path);
void putBytes(const std::string& path, const Bytes& bytes);

struct Damage {
    std::string name;
    std::function<void(Bytes&)> apply; // null: the file is removed
    bool found = true;                 // false: readers accept it
    bool minor = false;                // of a kind that another one of the list stands for
};
// The lowest and the highest bit of every field of a file with one compressed block, cuts at every
// boundary, zeros, and its loss.
[[nodiscard]] std::vector<Damage> damagesOf(const std::string& path);
[[nodiscard]] bool isCompressed(const std::string& path);

// Some damage of any file that its format lets be found.
void damageSomehow(const std::string& path, std::mt19937_64& random);
// A file below a directory, whatever it is; empty when there is none.
[[nodiscard]] std::string anyFile(const std::string& directory, std::mt19937_64& random);

// Makes all below a directory older than what the start-up check reads through.
void makeOld(const std::string& directory);

} // namespace kestrine::test
