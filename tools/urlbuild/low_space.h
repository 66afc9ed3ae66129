// Work waits where the volume is nearly full, as in the service; who waits at a terminal, or for a
// job of a batch, is told so.
#pragma once

#include "platform/forwarding_platform.h"

#include <string>

namespace kestrine::build {

// While it lives, the first look at the statistics' volume that finds too little room is reported
// on the standard error stream.
class LowSpaceNotice final : public ForwardingPlatform {
public:
    explicit LowSpaceNotice(std::string root) : m_root(std::move(root)) {}

    int freeSpace(const std::string& path, uint64_t& bytes) override;

private:
    std::string m_root;
    bool m_told = false;
    ScopedPlatform m_scope{*this};
};

} // namespace kestrine::build
