// The two directories that are worked in, the statistics root and the memory disk: which they are,
// whether they may serve, and the locks that keep others out.
//
// The service has both for itself. Processes that each do a part of its work share them, and so
// keep it out: for what they do in there they have locks of their own.
#pragma once

#include "frame/configuration.h"
#include "platform/platform.h"

#include <memory>
#include <string>

namespace kestrine {

class WorkingDirectories {
public:
    enum class Use { Alone, Shared };

    // By the settings, which get the default roots where they name none. 0; -1 also when one of
    // them must not serve (directory_guard.h). Makes nothing.
    [[nodiscard]] int fix(Configuration& configuration);
    // Makes them where they are missing and locks them until the object goes. Whatever is not
    // Locked is reported. A volume without locks does for Use::Alone, since the machine-wide name
    // still keeps a second service off this machine; shared use rests on locks alone.
    [[nodiscard]] LockResult lock(Use use);
    // Removes the memory disk, which must be empty but for its marker, and lets its lock go. Only
    // with Use::Alone.
    void removeMemoryDisk();

    [[nodiscard]] const std::string& dataPath() const { return m_dataPath; }
    [[nodiscard]] const std::string& urlStatRoot() const { return m_urlStatRoot; }
    [[nodiscard]] const std::string& memoryDisk() const { return m_memoryDisk; }

private:
    std::string m_dataPath;
    std::string m_urlStatRoot;
    std::string m_memoryDisk;
    std::unique_ptr<NamedEvent> m_rootLock;
    std::unique_ptr<NamedEvent> m_memoryDiskLock;
};

} // namespace kestrine
