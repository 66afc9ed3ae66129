#include "support/damages.h"

#include "frame/bytes.h"
#include "support/url_file_helper.h"
#include "tree/names.h"

#include <gtest/gtest.h>

namespace kestrine::test {

namespace {

void change(const std::string& path, const std::function<void(std::vector<uint8_t>&)>& how) {
    std::vector<uint8_t> bytes = readBytes(path);
    ASSERT_GT(bytes.size(), 100U) << path;
    how(bytes);
    writeBytes(path, bytes);
}

void withBackup(const std::string& path, void (*apply)(const std::string&)) {
    apply(path);
    if (platform().exists(names::backupOf(path))) {
        apply(names::backupOf(path));
    }
}

} // namespace

void lose(const std::string& path) {
    FileInfo info;
    if (platform().info(path, info) == 0) {
        EXPECT_EQ(info.isDirectory ? platform().removeTree("rmdir /S /Q \"" + path + "\"", path)
                                   : platform().removeFile(path),
                  0)
            << path;
    }
}

void flipStatus(const std::string& path) {
    change(path, [](auto& bytes) {
        const auto status = loadLittle<uint64_t>(bytes.data() + bytes.size() - 8);
        bytes.at(static_cast<size_t>(status) + 20) ^= 1;
    });
}

void flipBlock(const std::string& path) {
    change(path, [&path](auto& bytes) {
        EXPECT_EQ(bytes[32], 1) << path << " is not compressed";
        bytes[60] ^= 0x10;
    });
}

void truncate(const std::string& path) {
    change(path, [](auto& bytes) { bytes.resize(bytes.size() * 2 / 3); });
}

void litter(const std::string& path) {
    for (size_t end = path.find('/', 1); end != std::string::npos; end = path.find('/', end + 1)) {
        (void)platform().makeDirectory(path.substr(0, end));
    }
    writeBytes(path, asBytes("left over"));
}

void replaceBy(const std::string& path, const std::string& other) {
    writeBytes(path, readBytes(other));
}

const std::vector<Damage>& damages() {
    const auto both = [](void (*apply)(const std::string&)) {
        return [apply](const std::string& path) { withBackup(path, apply); };
    };
    static const std::vector<Damage> all = {
        {"status flipped", flipStatus},
        {"block flipped", flipBlock},
        {"truncated", truncate},
        {"lost", lose, true, false, false},
        {"status flipped, of the backup too", both(flipStatus), true, true},
        {"block flipped, of the backup too", both(flipBlock), true, true},
        {"lost with its backup", both(lose), true, true, false},
        {"directory lost",
         [](const std::string& path) { lose(std::string(names::parentOf(path))); }, true, true,
         false},
        {"backup truncated", [](const std::string& path) { truncate(names::backupOf(path)); },
         false, true, false},
    };
    return all;
}

} // namespace kestrine::test
