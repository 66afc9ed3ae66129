// What may happen to a file of the statistics, on whatever disk the platform in place has.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace kestrine::test {

// Removes a file, or a directory with all it holds.
void lose(const std::string& path);
// A bit of the status; of the first block's data, which must be compressed.
void flipStatus(const std::string& path);
void flipBlock(const std::string& path);
void truncate(const std::string& path);
// Writes a file, and its directories where they are not there.
void litter(const std::string& path);
// Puts a copy of `other` in a file's place.
void replaceBy(const std::string& path, const std::string& other);

// To a file with a backup beside it, perhaps: what of the two is no longer what it was.
struct Damage {
    const char* name;
    std::function<void(const std::string& path)> apply;
    bool file = true;
    bool backup = false;
    bool found = true; // its bytes go to quarantine
};
[[nodiscard]] const std::vector<Damage>& damages();

} // namespace kestrine::test
