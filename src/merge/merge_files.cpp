#include "merge/merge_files.h"

#include "frame/log.h"
#include "tree/quarantine.h"

#include <algorithm>
#include <cassert>
#include <cerrno>

namespace kestrine {

namespace {

// 0, g_tooFewHandles or -1.
int openFile(UrlFile& file, const std::string& path, OpenMode mode) {
    errno = 0; // what stands there afterwards comes from this call
    const int ret = file.open(path, mode);
    return ret != 0 && (errno == EMFILE || errno == ENFILE) ? g_tooFewHandles : ret;
}

int removeOneBrokenFile(const std::string& path, InputKind kind) {
    LOG_INFO("file %s is broken, remove it from disk", path.c_str());
    if (Util::dumpBrokenFile(path) != 0) {
        return LOG_FAIL("Util::dumpBrokenFile %s fail", path.c_str());
    }
    // Moved away by now, unless the move has left a copy behind.
    if (removeWorkFile(path) != 0) {
        return -1;
    }
    if (kind != InputKind::Formal) {
        return 0;
    }
    LOG_INFO("the broken file is %s, try to recover", path.c_str());
    return Util::restoreBackup(path);
}

} // namespace

int removeWorkFile(const std::string& path) {
    if (platform().exists(path) && platform().removeFile(path) != 0) {
        return LOG_FAIL("remove %s fail, errno %d", path.c_str(), errno);
    }
    return 0;
}

// First closed, then moved or removed: not every system does that with an open file.
MergeFiles::~MergeFiles() {
    if (closeUrlFiles() != 0) {
        LOG_ERROR("closeUrlFiles fail %s", m_work.c_str());
    }
    if (removeBrokenUrlFiles() != 0) {
        LOG_ERROR("removeBrokenUrlFiles fail %s", m_work.c_str());
    }
    if (!m_work.empty()) {
        (void)removeWorkFile(m_work); // reported there; the next pass removes it
    }
}

int MergeFiles::openSource(const std::string& path, uint32_t statusType) {
    assert(m_inputs.empty());
    if (openInput(path, InputKind::Formal) != 0) {
        return -1;
    }
    return m_inputs.back().file.readStatus(statusType) == 0
               ? 0
               : LOG_FAIL("read status from %s fail", path.c_str());
}

int MergeFiles::openInput(const std::string& path, InputKind kind) {
    Input& input = m_inputs.emplace_back();
    input.kind = kind;
    if (const int ret = openFile(input.file, path, OpenMode::Read); ret != 0) {
        LOG_ERROR("open %s fail", path.c_str());
        return ret;
    }
    ++m_openFiles;
    return 0;
}

int MergeFiles::openFileList(const MergeInputs& inputs, const std::string& work) {
    if (work.empty() || (inputs.paths.empty() && m_inputs.empty())) {
        return LOG_FAIL("param invalid");
    }
    const size_t before = m_inputs.size();
    int ret = 0;
    for (size_t i = 0; ret == 0 && i < inputs.paths.size(); ++i) {
        ret = openInput(inputs.paths[i], inputs.kindOf(i));
    }
    if (ret == 0) {
        ret = openOutput(work);
    }
    // Given back, since the rounds that come next need handles of their own.
    while (ret == g_tooFewHandles && m_inputs.size() > before) {
        if (closeOne(m_inputs.back().file) != 0) {
            return -1;
        }
        m_inputs.pop_back();
    }
    return ret;
}

int MergeFiles::openOutput(const std::string& work) {
    assert(!m_output.isOpen());
    m_work = work;
    if (const int ret = openFile(m_output, work, OpenMode::Truncate); ret != 0) {
        LOG_ERROR("open out file %s fail", work.c_str());
        return ret;
    }
    ++m_openFiles;
    return 0;
}

int MergeFiles::readDayStatus() {
    for (Input& input : m_inputs) {
        // The source's was read when it was opened, and decides which inputs there are.
        if (input.file.dayStatus() != nullptr || input.file.weekMonStatus() != nullptr) {
            continue;
        }
        if (input.file.readStatus(g_dayStatusType) != 0) {
            return LOG_FAIL("read status from %s fail", input.file.path().c_str());
        }
    }
    return 0;
}

int MergeFiles::closeOutput(Durable durable) {
    // Before it is closed, and so before any rename: a final name never stands for lost bytes.
    if (durable == Durable::Yes && m_output.sync() != 0) {
        return LOG_FAIL("sync %s fail", m_work.c_str());
    }
    return closeUrlFiles() == 0 ? 0 : LOG_FAIL("closeUrlFiles fail %s", m_work.c_str());
}

int MergeFiles::closeUrlFiles() {
    // All of them, whichever fails: the output's failure may be the only sign of a write that was
    // lost.
    int result = closeOne(m_output);
    for (Input& input : m_inputs) {
        result = std::min(result, closeOne(input.file));
    }
    return result == 0 ? 0 : LOG_FAIL("UrlFile::close fail");
}

int MergeFiles::closeOne(UrlFile& file) {
    if (!file.isOpen()) {
        return 0;
    }
    if (file.close() != 0) {
        return -1;
    }
    --m_openFiles;
    return 0;
}

int MergeFiles::removeBrokenUrlFiles() {
    for (const Input& input : m_inputs) {
        if (input.file.broken() && removeOneBrokenFile(input.file.path(), input.kind) != 0) {
            return -1;
        }
    }
    return 0;
}

int MergeFiles::renameOutput(const std::string& to) {
    assert(!m_output.isOpen() && !m_work.empty());
    if (platform().rename(m_work, to) != 0) {
        return -1;
    }
    keepOutput();
    return 0;
}

int MergeFiles::stopAndReturn() {
    LOG_INFO("stop and return");
    if (closeUrlFiles() != 0 || (!m_work.empty() && removeWorkFile(m_work) != 0)) {
        return -1;
    }
    keepOutput();
    return 1;
}

std::vector<UrlFile*> MergeFiles::inputs() {
    std::vector<UrlFile*> files;
    for (Input& input : m_inputs) {
        files.push_back(&input.file);
    }
    return files;
}

} // namespace kestrine
