// A platform that goes wrong at a chosen change of the disk.
#pragma once

#include "power_loss.h"
#include "support/forwarding_platform.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace kestrine::test {

enum class Fault {
    None,
    Kill,       // the process ends before the change, without any clean-up
    FailOnce,   // the change fails
    FailOn,     // it and every later one fails
    ShortWrite, // a write is cut short, other changes fail
    Full,       // from then on nothing finds room, while removals and renames succeed
    PowerLoss,  // a kill that takes away what was not durable
};

struct FaultPlan {
    Fault fault = Fault::None;
    uint64_t at = 0; // number of the change, from 1
    int error = 0;   // errno of a failing change
    // End the process when the start-up check is over, which is when the ticks are first asked for.
    bool startUpOnly = false;
    uint64_t seed = 0; // of what a power failure takes away
};

constexpr int g_killedExit = 77;
constexpr int g_startUpOverExit = 78;

// Counts the changes below `scope`: created or emptied files, writes, syncs, renames, removals,
// made and removed directories. Nothing outside is a fault point. Clocks are fake (no pause takes
// time), free space is plenty, and the service's log lines are dropped.
class FaultPlatform : public FakeClockPlatform {
public:
    static constexpr int64_t g_now = 1000000000; // seconds since 1970

    FaultPlatform(std::string scope, const std::string& keptAside, FaultPlan plan);

    [[nodiscard]] uint64_t changes() const { return m_changes; }
    // Called at each change with its number and name.
    std::function<void(uint64_t, const char*)> onChange;
    // Bytes that find room in the files below a directory, if there is a limit. What a write cannot
    // place is not written.
    std::string smallDisk;
    std::optional<uint64_t> smallDiskRoom;
    // Paths that do not exist yet.
    std::function<bool(const std::string&)> hidden;

    uint32_t lastError() const override;
    std::unique_ptr<File> open(const std::string& path, OpenMode mode) override;
    bool exists(const std::string& path) override;
    int removeFile(const std::string& path) override;
    int rename(const std::string& from, const std::string& to) override;
    int makeDirectory(const std::string& path) override;
    int removeDirectory(const std::string& path) override;
    int syncDirectory(const std::string& path) override;
    uint32_t tickCount() override;
    int removeTree(const std::string& command, const std::string& path) override;
    int move(const std::string& command, const std::string& from, const std::string& to) override;

private:
    class WatchedFile;

    // True when the change must fail. Does not return when the process ends here.
    bool refuses(const std::string& path, const char* what);
    [[nodiscard]] bool tracks(const std::string& path) const;
    [[nodiscard]] bool hits(const char* what) const;
    [[nodiscard]] uint64_t roomFor(const std::string& path) const;

    std::string m_scope;
    FaultPlan m_plan;
    PowerLoss m_powerLoss;
    uint64_t m_changes = 0;
    bool m_lastFailed = false;
};

} // namespace kestrine::test
