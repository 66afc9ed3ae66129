#include "harness/fuzz_platform.h"

#include "harness/target.h"

namespace kestrine::fuzz {

FuzzPlatform& disk() {
    static FuzzPlatform platform;
    return platform;
}

void FuzzPlatform::clear() {
    files.clear();
    directories.clear();
    executable.clear();
    modified = 1;
}

void FuzzPlatform::put(const std::string& path, ByteView bytes) {
    files[path].assign(bytes.begin(), bytes.end());
}

const Bytes& FuzzPlatform::content(const std::string& path) const {
    const auto found = files.find(path);
    require(found != files.end(), "the file is there");
    return found->second;
}

int FuzzPlatform::info(const std::string& path, FileInfo& info) {
    info.modified = modified;
    return MemoryDisk::info(path, info);
}

int FuzzPlatform::freeSpace(const std::string&, uint64_t& bytes) {
    bytes = uint64_t{1} << 50;
    return 0;
}

int FuzzPlatform::removeTree(const std::string&, const std::string& path) {
    std::erase_if(files, [&](const auto& file) { return file.first.starts_with(path + "/"); });
    return 0;
}

void FuzzPlatform::sleep(uint32_t) {
    require(false, "nothing waits");
}

} // namespace kestrine::fuzz
