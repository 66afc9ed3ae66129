#include "command.h"

#include <CLI/CLI.hpp>

#include <limits>

namespace kestrine {

Command& Command::text(const char* name, std::string& value, const char* help) {
    m_app.add_option(name, value, help);
    return *this;
}

Command& Command::requiredText(const char* name, std::string& value, const char* help) {
    m_app.add_option(name, value, help)->required();
    return *this;
}

Command& Command::texts(const char* name, std::vector<std::string>& values, const char* help) {
    CLI::Option* const option = m_app.add_option(name, values, help);
    if (*name == '-') {
        option->allow_extra_args(false);
    }
    return *this;
}

Command& Command::choice(const char* name, std::string& value,
                         const std::vector<std::string>& choices, const char* help) {
    CLI::Option* const option = m_app.add_option(name, value, help)->check(CLI::IsMember(choices));
    if (!value.empty()) {
        option->capture_default_str();
    }
    return *this;
}

Command& Command::flag(const char* name, bool& value, const char* help) {
    m_app.add_flag(name, value, help);
    return *this;
}

Command& Command::number(const char* name, uint32_t& value, const char* help, uint32_t least) {
    m_app.add_option(name, value, help)
        ->check(CLI::Range(least, std::numeric_limits<uint32_t>::max()))
        ->capture_default_str();
    return *this;
}

Command& Command::number(const char* name, uint64_t& value, const char* help) {
    m_app.add_option(name, value, help);
    return *this;
}

Command& Command::number(const char* name, std::optional<uint32_t>& value, const char* help) {
    m_app.add_option(name, value, help);
    return *this;
}

Command& Command::either(const char* name, const char* other) {
    m_app.get_option(name)->excludes(m_app.get_option(other));
    return *this;
}

} // namespace kestrine
