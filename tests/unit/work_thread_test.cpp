#include "service/directory_guard.h"
#include "support/forwarding_platform.h"
#include "support/temp_dir.h"

#include <gtest/gtest.h>

namespace kestrine {
namespace {

// It is deleted with all it holds, however it is written.
TEST(DirectoryGuard, MemoryDiskHoldsNothingElse) {
    const test::TempDir dir;
    const std::string data = dir.makeDirs("data/log_data");
    const std::string stat = dir.makeDirs("stat");
    dir.write("install/ml/kestrine");
    dir.write("data/log_data/alice/devid_1/20120303/A/0/0.dat");
    dir.write("stat/alice/20120303/daycrcsort");
    for (const std::string& path :
         {std::string(), std::string("/"), std::string("/."), dir.path(), dir / "data",
          dir / "data/", dir / "data/log_data", dir / "stat", dir / "data/log_data/.",
          dir / "stat/x/..", dir / "stat/../stat", dir / "mem/../data//log_data", dir / "install",
          dir / "install/ml", dir / "data/log_data/alice", dir / "data/log_data/alice/devid_1",
          dir / "stat/alice", dir / "stat/alice/20120303"}) {
        EXPECT_FALSE(mayBeMemoryDisk(path, data, stat)) << path;
    }
    for (const std::string& path : {dir / "mem", dir / "data/log_data/_memdisk", dir / "statx",
                                    dir / "data/log", dir / "stat/x"}) {
        EXPECT_TRUE(mayBeMemoryDisk(path, data, stat)) << path;
    }
    // What a killed service left, and what is found there besides.
    dir.makeDirs("mem/alice");
    dir.write("mem/bob/20121231/0.temp");
    dir.write(std::string("mem/") + g_memoryDiskMarker);
    EXPECT_TRUE(mayBeMemoryDisk(dir / "mem", data, stat) && holdsOnlySpillFiles(dir / "mem"));
    for (const char* const other :
         {"mem/file", "mem/bob/file", "mem/bob/20121231/x", "mem/bob/20121231/1.temp/x",
          "mem/bob/20121231/1 list.temp", "mem/bob/2012/file", "mem/.x/y"}) {
        dir.write(other);
        EXPECT_FALSE(mayBeMemoryDisk(dir / "mem", data, stat)) << other;
        EXPECT_FALSE(holdsOnlySpillFiles(dir / "mem")) << other;
        std::filesystem::remove(dir / other);
        std::error_code notEmpty;
        std::filesystem::remove(std::filesystem::path(dir / other).parent_path(), notEmpty);
    }
    std::error_code none;
    std::filesystem::create_directory_symlink(dir / "install", dir / "link", none);
    std::filesystem::create_directory_symlink(dir / "stat", dir / "mem/bob/20130101", none);
    if (!none) {
        EXPECT_FALSE(mayBeMemoryDisk(dir / "link", data, stat));
        EXPECT_FALSE(mayBeMemoryDisk(dir / "link/ml", data, stat));
        EXPECT_FALSE(mayBeMemoryDisk(dir / "mem", data, stat));
    }
}

TEST(DirectoryGuard, RootAndLengths) {
    const test::TempDir dir;
    const std::string data = dir.makeDirs("data/log_data");
    test::FakeClockPlatform clock;
    clock.executable = dir / "install/ml/kestrine";
    const test::ScopedPlatform scope(clock);
    for (const std::string& root : {dir.path(), dir / "install", dir / "install/ml",
                                    data + "/alice/devid_1", data + "/alice/devid_1/20120303/x"}) {
        EXPECT_FALSE(mayBeUrlStatRoot(root, data)) << root;
    }
    for (const std::string& root : {dir / "stat", data, data + "/_urlstat", data + "/alice"}) {
        EXPECT_TRUE(mayBeUrlStatRoot(root, data)) << root;
    }
    const auto path = [](size_t length) { return "/" + std::string(length - 1, 'p'); };
    EXPECT_TRUE(leavesRoomForNames(path(190), path(140)));
    EXPECT_FALSE(leavesRoomForNames(path(239), path(140)));
    EXPECT_FALSE(leavesRoomForNames(path(100), path(209)));
}

} // namespace
} // namespace kestrine
