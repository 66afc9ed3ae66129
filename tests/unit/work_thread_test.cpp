#include "service/work_thread.h"
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

} // namespace
} // namespace kestrine
