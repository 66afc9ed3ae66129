// The files of one merge operation: opened together, closed together, and, where one of them turns
// out to be damaged, set aside.
#include "frame/log.h"
#include "frame/run_flag.h"
#include "merge/merge_file_list.h"
#include "tree/directories.h"
#include "tree/names.h"
#include "tree/quarantine.h"
#include "tree/top_list_dirs.h"

#include <cerrno>
#include <cinttypes>

namespace kestrine {

MergeFileList::~MergeFileList() {
    if (m_openFiles != 0) {
        LOG_INFO("ERROR unfree count %d !!!!!!", m_openFiles);
    }
}

int MergeFileList::openInput(const std::string& path) {
    m_inputs.push_back(std::make_unique<UrlFile>());
    if (m_inputs.back()->open(path, OpenMode::Read) != 0) {
        return LOG_FAIL("open %s fail", path.c_str());
    }
    ++m_openFiles;
    return 0;
}

int MergeFileList::openFileList(const std::vector<std::string>& inputs, const std::string& output) {
    if (output.empty() || (inputs.empty() && m_inputs.empty())) {
        return LOG_FAIL("param invalid");
    }
    for (const std::string& path : inputs) {
        if (openInput(path) != 0) {
            return -1;
        }
    }
    m_output = std::make_unique<UrlFile>();
    if (m_output->open(output, OpenMode::Truncate) != 0) {
        return LOG_FAIL("open out file %s fail", output.c_str());
    }
    ++m_openFiles;
    return 0;
}

// Inputs whose status was read already (the current day, week or month file) are passed over.
int MergeFileList::readDayStatus() {
    for (const auto& file : m_inputs) {
        if (file->dayStatus() != nullptr || file->weekMonStatus() != nullptr) {
            continue;
        }
        if (file->readStatus(g_dayStatusType) != 0) {
            return LOG_FAIL("read status from %s fail", file->path().c_str());
        }
    }
    return 0;
}

int MergeFileList::closeUrlFiles() {
    int result = 0;
    const auto closeOne = [this, &result](UrlFile& file) {
        if (!file.isOpen()) {
            return;
        }
        --m_openFiles;
        if (file.close() != 0) {
            result = -1;
        }
    };
    for (const auto& file : m_inputs) {
        closeOne(*file);
    }
    if (m_output) {
        closeOne(*m_output);
    }
    if (result != 0) {
        LOG_ERROR("UrlFile::close fail");
    }
    return result;
}

// Day, week and month files come back from their backup; temporary and new-day files do not.
int MergeFileList::removeBrokenUrlFiles() {
    for (const auto& file : m_inputs) {
        if (file->broken() && removeOneBrokenFile(file->path()) != 0) {
            return -1;
        }
    }
    return 0;
}

int MergeFileList::removeOneBrokenFile(const std::string& path) {
    LOG_INFO("file %s is broken, remove it from disk", path.c_str());
    if (Util::dumpBrokenFile(path) != 0) {
        return LOG_FAIL("Util::dumpBrokenFile %s fail", path.c_str());
    }
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    if (path.find("crcsort") == std::string::npos || names::newDayNumber(path) >= 0) {
        return 0;
    }
    LOG_INFO("the broken file is %s, try to recover", path.c_str());
    return Util::restoreBackup(path);
}

int MergeFileList::removeWorkFile(const std::string& path) {
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    return 0;
}

// Runs the engine over the opened files.
int MergeFileList::runMerge(const std::string& workPath) {
    std::vector<UrlFile*> inputs;
    inputs.reserve(m_inputs.size());
    for (const auto& file : m_inputs) {
        inputs.push_back(file.get());
    }
    if (commonMergeProcess(m_output.get(), inputs) != 0) {
        return LOG_FAIL("commonMergeProcess fail %s", workPath.c_str());
    }
    return 0;
}

// The output carries its status already: synced if wanted, and all closed.
int MergeFileList::closeOutput(const std::string& workPath, bool durable) {
    if (durable && m_output->sync() != 0) {
        return LOG_FAIL("sync %s fail", workPath.c_str());
    }
    if (closeUrlFiles() != 0) {
        return LOG_FAIL("closeUrlFiles fail %s", workPath.c_str());
    }
    return 0;
}

int MergeFileList::syncDirectoryOf(const std::string& path) {
    const std::string directory(names::parentOf(path));
    if (platform().syncDirectory(directory) != 0) {
        return LOG_FAIL("sync directory %s fail, errno %d", directory.c_str(), errno);
    }
    return 0;
}

// After a failure: everything closed, damaged inputs set aside, the work file gone. Returns -1.
int MergeFileList::abandon(const std::string& workPath) {
    if (closeUrlFiles() != 0) {
        LOG_ERROR("closeUrlFiles fail %s", workPath.c_str());
    }
    if (removeBrokenUrlFiles() != 0) {
        LOG_ERROR("removeBrokenUrlFiles fail %s", workPath.c_str());
    }
    m_inputs.clear();
    m_output.reset();
    removeRoundFiles();
    (void)removeWorkFile(workPath); // reported there; the next pass removes it
    return -1;
}

// After a stop: the same without a failure. Returns 1, no output.
int MergeFileList::stopAndReturn(const std::string& workPath) {
    LOG_INFO("stop and return");
    const int closed = closeUrlFiles();
    m_inputs.clear();
    m_output.reset();
    removeRoundFiles();
    return closed == 0 && removeWorkFile(workPath) == 0 ? 1 : -1;
}

int MergeFileList::deleteTopnDir(const std::string& directory) {
    return Util::deleteTopLists(directory);
}

void MergeFileList::validateTotalCount(uint64_t outputTotal) const {
    uint64_t sum = 0;
    for (const auto& file : m_inputs) {
        const uint64_t total = file->statusTotal();
        LOG_DEBUG("%s %" PRId64, file->path().c_str(), static_cast<int64_t>(total));
        sum += total;
    }
    if (sum != outputTotal) {
        LOG_INFO("total count not match %" PRId64 " %" PRId64, static_cast<int64_t>(sum),
                 static_cast<int64_t>(outputTotal));
    }
}

} // namespace kestrine
