#include "merge/mem_file_list.h"

#include "frame/log.h"
#include "merge/disk_temp_file_list.h"
#include "merge/merge_file_list.h"
#include "platform/platform.h"
#include "tree/directories.h"
#include "tree/names.h"

#include <algorithm>
#include <cassert>
#include <cerrno>

namespace kestrine {

void MemFileList::openGroup() {
    m_groups.emplace_back();
}

int MemFileList::addUrlFile(const std::string& path) {
    assert(!m_groups.empty());
    FileInfo info;
    if (platform().info(path, info) != 0) {
        return LOG_FAIL("_stati64 fail %s errno %d", path.c_str(), errno);
    }
    Group& group = m_groups.back();
    group.inputs.push_back(path);
    group.size += static_cast<uint64_t>(info.size);
    m_totalSize += static_cast<uint64_t>(info.size);
    return 0;
}

size_t MemFileList::lastGroupSize() const {
    return m_groups.empty() ? 0 : m_groups.back().inputs.size();
}

bool MemFileList::hasFiles() const {
    return std::any_of(m_groups.begin(), m_groups.end(),
                       [](const Group& group) { return !group.inputs.empty(); });
}

void MemFileList::setLastStatus(const DayStatus& status) {
    assert(!m_groups.empty());
    m_groups.back().status = status;
}

void MemFileList::setLastOutput(const std::string& path) {
    assert(!m_groups.empty());
    m_groups.back().output = path;
}

int MemFileList::mergeFileList(DiskTempFileList* list) {
    if (list == nullptr) {
        return LOG_FAIL("param null");
    }
    print();
    while (!m_groups.empty()) {
        const int ret = mergeGroup(m_groups.front(), *list);
        if (ret != 0) {
            return ret;
        }
        m_groups.erase(m_groups.begin());
    }
    m_totalSize = 0;
    return 0;
}

int MemFileList::mergeGroup(Group& group, DiskTempFileList& list) {
    if (group.inputs.empty()) {
        list.add(group.output, group.status);
        return 0;
    }
    const std::string directory = std::string(names::parentOf(group.output)) + "/";
    if (!platform().exists(directory) && Util::createDir(directory, Durable::No) != 0) {
        return LOG_FAIL("create dir %s fail", directory.c_str());
    }
    MergeFileList merge;
    const int ret = merge.mergeTemp2Temp(group.inputs, group.status, group.output);
    if (ret != 0) {
        return ret < 0 ? LOG_FAIL("mergeTemp2Temp fail %s", group.output.c_str()) : ret;
    }
    list.add(group.output, group.status);
    // Behind the merge: until its output has its name these are all there is of their visits.
    removeInputs(group);
    return 0;
}

void MemFileList::removeInputs(Group& group) {
    for (const std::string& path : group.inputs) {
        if (platform().removeFile(path) != 0) {
            // Only logged: nothing reads it again, and the memory disk is emptied at the end and at
            // every start.
            LOG_INFO("remove %s fail, errno %d", path.c_str(), errno);
        }
    }
    group.inputs.clear();
    m_totalSize -= std::min(m_totalSize, group.size);
    group.size = 0;
}

void MemFileList::dropLastGroup() {
    if (!m_groups.empty()) {
        removeInputs(m_groups.back());
        m_groups.pop_back();
    }
}

void MemFileList::print() const {
    LOG_DEBUG("mem file list:");
    for (const Group& group : m_groups) {
        for (const std::string& path : group.inputs) {
            LOG_DEBUG("in %s", path.c_str());
        }
        LOG_DEBUG("out %s, total size %d", group.output.c_str(), static_cast<int>(group.size));
    }
}

} // namespace kestrine
