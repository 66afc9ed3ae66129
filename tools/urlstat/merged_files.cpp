#include "merged_files.h"

#include "failure.h"
#include "stat_file.h"
#include "tree/names.h"

#include <filesystem>
#include <random>

namespace kestrine::viewer {

namespace {

void initReader(MergingReader& reader, const std::vector<std::unique_ptr<UrlFile>>& files) {
    std::vector<UrlFile*> inputs;
    inputs.reserve(files.size());
    for (const std::unique_ptr<UrlFile>& file : files) {
        inputs.push_back(file.get());
    }
    if (reader.init(inputs) != 0) {
        throw readFailure(*reader.failed());
    }
}

bool nextRecord(MergingReader& reader, UrlRecordView& record) {
    const int result = reader.readOneRecord(record);
    if (result < 0) {
        throw readFailure(*reader.failed());
    }
    return result == 0;
}

void writeAll(MergingReader& reader, const std::string& path) {
    UrlFile output;
    DayStatus status;
    status.updateIfNewer({"urlstat", 0, 0}); // no reader takes a status without an entry
    UrlRecordView record;
    bool good = output.open(path, OpenMode::Truncate) == 0;
    while (good && nextRecord(reader, record)) {
        good = output.writeOneRecord(record) == 0;
    }
    status.setTotalCount(output.totalCount());
    if (!good || output.writeStatus(status) != 0 || output.close() != 0) {
        throw Failure(path + ": cannot be written; more files than can be open at once are merged "
                             "there first, it needs room for them");
    }
}

} // namespace

TemporaryFile::TemporaryFile() {
    const std::string directory = std::filesystem::temp_directory_path().generic_string();
    std::random_device random;
    m_path = names::join(directory, "urlstat-" + std::to_string(random()) + "-" +
                                        std::to_string(random()) + ".temp");
}

TemporaryFile::~TemporaryFile() {
    (void)platform().removeFile(m_path); // what is left is the system's to clean up
}

MergedFiles::MergedFiles(std::span<const PeriodEntry> periods) {
    for (const PeriodEntry& period : periods) {
        std::unique_ptr<UrlFile> file = openPeriod(period.files, period.dir.period);
        if (!file) {
            continue;
        }
        ++m_count;
        m_total += file->statusTotal();
        m_files.push_back(std::move(file));
        if (m_files.size() == g_mostOpen) {
            m_files = mergeToTemporary(m_files);
        }
    }
    initReader(m_reader, m_files);
}

MergedFiles::Files MergedFiles::mergeToTemporary(const Files& files) {
    MergingReader reader;
    initReader(reader, files);
    const std::string& path = m_temporary.emplace_back().path();
    writeAll(reader, path);
    Files merged;
    merged.push_back(openStatFile(path, g_dayStatusType));
    if (!merged.back()) {
        throw Failure(path + ": is gone; do not clean up the directory meanwhile");
    }
    return merged;
}

bool MergedFiles::next(UrlRecordView& record) {
    return nextRecord(m_reader, record);
}

} // namespace kestrine::viewer
