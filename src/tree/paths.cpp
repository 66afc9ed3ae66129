#include "tree/paths.h"

#include "platform/platform.h"

#include <algorithm>

namespace kestrine::names {

namespace {

std::string_view withoutTrailingSeparators(std::string_view path) {
    return path.substr(0, path.find_last_not_of('/') + 1);
}

// Cuts the first component off a path; empty at its end.
std::string_view takeComponent(std::string_view& path) {
    path.remove_prefix(std::min(path.find_first_not_of('/'), path.size()));
    const std::string_view component = path.substr(0, path.find('/'));
    path.remove_prefix(component.size());
    return component;
}

} // namespace

std::string_view lastComponent(std::string_view path) {
    path = withoutTrailingSeparators(path);
    return path.substr(path.rfind('/') + 1); // without a '/' the sum is 0
}

std::string_view parentOf(std::string_view path) {
    path = withoutTrailingSeparators(path);
    const size_t separator = path.rfind('/');
    if (separator == std::string_view::npos) {
        return {};
    }
    const std::string_view parent = withoutTrailingSeparators(path.substr(0, separator));
    // The root is its own end: what lies directly in it has "/" above it.
    return parent.empty() ? path.substr(0, 1) : parent;
}

bool liesBelow(std::string_view path, std::string_view directory) {
    // A relative and an absolute path cannot be compared.
    if (directory.empty() || path.starts_with('/') != directory.starts_with('/')) {
        return false;
    }
    for (;;) {
        const std::string_view wanted = takeComponent(directory);
        if (wanted.empty()) {
            return true;
        }
        if (!platform().sameFileName(std::string(takeComponent(path)), std::string(wanted))) {
            return false;
        }
    }
}

std::string join(std::string_view directory, std::string_view name) {
    std::string path(directory);
    if (!path.empty() && !path.ends_with('/')) {
        path += '/';
    }
    return path.append(name);
}

} // namespace kestrine::names
