// The installation whose statistics are worked on: settings, directories, accounts.
#pragma once

#include "frame/configuration.h"
#include "service/working_directories.h"

#include <string>

namespace kestrine::build {

struct Account {
    std::string name;      // of its directories
    std::string path;      // of its log data
    std::string directory; // of its statistics
    std::string spills;    // of its part of the memory disk
    std::string temporary; // of its disk temporary files
    std::string text;      // the name as it is printed
};

class Installation {
public:
    // Finds settings and directories as the service does. Locks nothing. Throws Failure.
    Installation();

    [[nodiscard]] const Configuration& configuration() const { return *m_configuration; }
    [[nodiscard]] const WorkingDirectories& directories() const { return m_directories; }
    // Keeps the service out of both directories while the object lives, and others of our kind not.
    // Throws Failure.
    void enter();
    // By the name of its directory, in the spelling of bytes_text.h. Throws Failure.
    [[nodiscard]] Account account(const std::string& text) const;

private:
    Configuration* m_configuration = nullptr;
    WorkingDirectories m_directories;
};

} // namespace kestrine::build
