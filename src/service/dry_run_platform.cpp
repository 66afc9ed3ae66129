#include "service/dry_run_platform.h"

#include <cerrno>

namespace kestrine {

namespace {

// Takes what is written and keeps none of it.
class NoFile final : public File {
public:
    int64_t read(std::span<uint8_t>) override { return 0; }
    int64_t write(std::span<const uint8_t> data) override {
        return static_cast<int64_t>(data.size());
    }
    int seek(int64_t) override { return 0; }
    int64_t tell() override { return 0; }
    int64_t size() override { return 0; }
    int sync() override { return 0; }
    int close() override { return 0; }
};

} // namespace

std::unique_ptr<File> DryRunPlatform::open(const std::string& path, OpenMode mode) {
    if (mode == OpenMode::Truncate || mode == OpenMode::Append) {
        return std::make_unique<NoFile>();
    }
    return ForwardingPlatform::open(path, mode);
}

NamedEventResult DryRunPlatform::createNamedEvent(const std::string& name,
                                                  std::unique_ptr<NamedEvent>& event) {
    const NamedEventResult result = ForwardingPlatform::createNamedEvent(name, event);
    // Let go at once, or a start during the check would be refused.
    event.reset();
    return result;
}

void DryRunPlatform::writeConsole(std::string_view text, bool toError) {
    if (toError) {
        m_errors.emplace_back(text);
    } else {
        ForwardingPlatform::writeConsole(text, toError);
    }
}

int DryRunPlatform::startProgram(const std::string&, std::span<const std::string>,
                                 std::unique_ptr<ChildProcess>&) {
    errno = EPERM;
    return -1;
}

} // namespace kestrine
