#include "service/work_thread.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

// It is deleted with all it holds, however it is written.
TEST(MemoryDisk, MustHoldNothingElse) {
    const test::TempDir dir;
    const std::string data = dir.makeDirs("data/log_data");
    const std::string stat = dir.makeDirs("stat");
    const std::string here = std::filesystem::current_path().generic_string();
    for (const std::string& path :
         {std::string(), std::string("/"), std::string("/."), dir.path(), dir / "data",
          dir / "data/", dir / "data/log_data", dir / "stat", dir / "data/log_data/.",
          dir / "stat/x/..", dir / "stat/../stat", dir / "mem/../data//log_data"}) {
        EXPECT_TRUE(isUnsafeMemoryDisk(path, data, stat)) << path;
    }
    for (const std::string& path : {dir / "mem", dir / "data/log_data/_memdisk", dir / "statx",
                                    dir / "data/log", dir / "stat/x"}) {
        EXPECT_FALSE(isUnsafeMemoryDisk(path, data, stat)) << path;
    }
    for (const std::string path : {".", "..", "x/.."}) {
        EXPECT_TRUE(isUnsafeMemoryDisk(path, here + "/log_data", stat)) << path;
        EXPECT_TRUE(isUnsafeMemoryDisk(path, data, here + "/stat")) << path;
    }
    EXPECT_TRUE(isUnsafeMemoryDisk(here, data, "stat"));
    EXPECT_FALSE(isUnsafeMemoryDisk("mem", here + "/log_data", "stat"));
}

class MountedPlatform : public test::ForwardingPlatform {
public:
    std::string mountPoint;
    bool isVolumeRoot(const std::string& path) override {
        return path == mountPoint || ForwardingPlatform::isVolumeRoot(path);
    }
};

TEST(MemoryDisk, MayBeAVolumeThatHoldsNothingElse) {
    const test::TempDir dir;
    MountedPlatform mounted;
    mounted.mountPoint = mounted.resolvedPath(dir.makeDirs("ram"));
    const test::ScopedPlatform scope(mounted);
    const auto unsafe = [&dir] { return isUnsafeMemoryDisk(dir / "ram", dir / "data", dir / "s"); };
    EXPECT_FALSE(unsafe());
    dir.makeDirs("ram/alice");
    dir.write("ram/bob/20121231/0.temp");
    EXPECT_FALSE(unsafe());
    for (const char* const other : {"ram/file", "ram/bob/file", "ram/bob/2012/file", "ram/.x/y"}) {
        dir.write(other);
        EXPECT_TRUE(unsafe()) << other;
        std::filesystem::remove(dir / other);
        std::error_code notEmpty;
        std::filesystem::remove(std::filesystem::path(dir / other).parent_path(), notEmpty);
    }
}

} // namespace
} // namespace kestrine
