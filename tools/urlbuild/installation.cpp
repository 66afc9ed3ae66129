#include "installation.h"

#include "bytes_text.h"
#include "frame/install_root.h"
#include "input/abstract_new_data.h"
#include "not_now.h"
#include "tree/names.h"

#include <algorithm>
#include <vector>

namespace kestrine::build {

Installation::Installation() {
    if (Configuration::getInstance(&m_configuration) != 0) {
        throw Failure(install::settingsFile() + ": cannot be read; see the lines above it");
    }
    if (m_directories.fix(*m_configuration) != 0) {
        throw Failure("directories: cannot be worked in, as the lines above say; "
                      "\"kestrine --check\" tells more");
    }
    FileInfo info;
    // A volume that is not mounted must not pass for one without logs.
    if (platform().info(m_directories.dataPath(), info) != 0 || !info.isDirectory) {
        throw Failure(m_directories.dataPath() +
                      ": the log data is not there; is its volume mounted?");
    }
}

void Installation::enter() {
    switch (m_directories.lock(WorkingDirectories::Use::Shared)) {
    case LockResult::Locked:
        return;
    case LockResult::HeldByAnother:
        throw notNow(m_directories.urlStatRoot() +
                     ": the service runs on it; stop it first, or leave the work to it");
    case LockResult::NotSupported:
        throw Failure(m_directories.urlStatRoot() +
                      ": its volume, or the memory disk's, has no locks, on which the work of "
                      "several programs rests; leave the work to the service");
    case LockResult::Failed:
        break;
    }
    throw Failure(m_directories.urlStatRoot() + ": cannot be locked; see the lines above it");
}

Account Installation::account(const std::string& text) const {
    std::vector<std::string> accounts;
    if (AbstractNewData::getAllAccounts(accounts) != 0) {
        throw Failure("accounts: cannot be read; \"kestrine --check\" tells more");
    }
    const std::string wanted = bytesOfText(text).value_or(text);
    const auto path = std::ranges::find_if(accounts, [&wanted](const std::string& account) {
        return platform().sameFileName(names::accountOf(account), wanted);
    });
    if (path == accounts.end()) {
        throw Failure(text + ": is no account; \"kestrine --check\" lists them");
    }
    const std::string name = names::accountOf(*path);
    const std::string directory = names::accountDir(m_directories.urlStatRoot(), name);
    return {name,
            *path,
            directory,
            names::join(m_directories.memoryDisk(), name),
            std::string(names::parentOf(names::diskTempDir(directory, "0"))),
            utf8Text(name)};
}

} // namespace kestrine::build
