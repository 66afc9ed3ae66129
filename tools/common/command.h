// A command of the program with its options. What stands on the command line goes into the
// variables given here, which live until the command is carried out.
//
// The library that parses command lines is included by main.cpp, command.cpp and session.cpp alone,
// since nothing takes longer to compile.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace CLI {
class App;
} // namespace CLI

namespace kestrine {

// Names that begin with '-' are options, others stand for the words between them.
class Command {
public:
    explicit Command(CLI::App& app) : m_app(app) {}

    Command& text(const char* name, std::string& value, const char* help);
    Command& requiredText(const char* name, std::string& value, const char* help);
    // Any number of words; an option is given again for each.
    Command& texts(const char* name, std::vector<std::string>& values, const char* help);
    // One of the words `choices`.
    Command& choice(const char* name, std::string& value, const std::vector<std::string>& choices,
                    const char* help);
    Command& flag(const char* name, bool& value, const char* help);
    Command& number(const char* name, uint32_t& value, const char* help, uint32_t least = 0);
    Command& number(const char* name, uint64_t& value, const char* help);
    Command& number(const char* name, std::optional<uint32_t>& value, const char* help);
    // Two options of which only one may be given.
    Command& either(const char* name, const char* other);

private:
    CLI::App& m_app;
};

} // namespace kestrine
