// Merging of sorted URL files: the operations that set up inputs and outputs.
//
// Every operation writes under a temporary name and renames the finished output into place. A kill
// leaves nothing changed, a work file (name ending in ".temp" or ".temp.temp") that the next pass
// or start-up removes, or the complete output with its status.
//
// Results: 0 output written; 1 no output (nothing to do, or a stop was requested), nothing changed;
// -1 failure, damaged inputs set aside and, where there is one, replaced by their backup.
#pragma once

#include "merge/merge_files.h"
#include "merge/merge_rounds.h"
#include "storage/status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

class MergeFileList {
public:
    MergeFileList() = default;
    ~MergeFileList();
    MergeFileList(const MergeFileList&) = delete;
    MergeFileList& operator=(const MergeFileList&) = delete;

    // Temporary files into one temporary file that carries `status`.
    [[nodiscard]] int mergeTemp2Temp(const std::vector<std::string>& inputs,
                                     const DayStatus& status, const std::string& output);
    // A date's disk temporary files into a new-day file that carries `status`, durable on return.
    // No inputs: a file of only the status, which carries the positions forward.
    [[nodiscard]] int mergeTemp2New(const std::vector<std::string>& inputs, const DayStatus& status,
                                    const std::string& newFile);
    // New-day files and the current day file into `finalPath`, the day file's name + ".temp". New-
    // day files that the day file holds already take no part.
    [[nodiscard]] int mergeNew2Day(const std::vector<std::string>& newFiles,
                                   const std::string& finalPath);
    // The current week or month file and new-day files into `finalPath`, the formal name + ".temp".
    // New-day files that it holds already take no part. With `dayFiles`, the day files of the
    // period, the output is built from these alone, whatever the current file holds.
    [[nodiscard]] int mergeNew2WeekMon(const std::vector<std::string>& newFiles,
                                       const std::vector<std::string>& dayFiles,
                                       const std::string& finalPath);

    // Merges open inputs, positioned before their first block, into the open output (see
    // merge_engine.h). 0 also when it stopped half-way because a stop was requested.
    [[nodiscard]] int commonMergeProcess(UrlFile* output, const std::vector<UrlFile*>& inputs);

private:
    [[nodiscard]] int mergeTemps(const std::vector<std::string>& paths, const DayStatus& status,
                                 const std::string& output, Durable durable);
    [[nodiscard]] int createEmptyDaycrcsortNew(MergeFiles& files, const std::string& path,
                                               const DayStatus& status);
    template <typename Status>
    [[nodiscard]] int mergePeriod(MergeInputs inputs, Status status, const std::string& finalPath);
    template <typename Status>
    [[nodiscard]] int mergePeriodInputs(MergeFiles& files, MergeRounds& rounds, MergeInputs& inputs,
                                        Status& status, const std::string& finalPath);
    [[nodiscard]] static int finishPeriod(MergeFiles& files, const std::string& finalPath);
    [[nodiscard]] static int deleteTopnDir(const std::string& directory);

    [[nodiscard]] int openInputs(MergeFiles& files, MergeRounds& rounds, MergeInputs& inputs,
                                 const std::string& work);
    [[nodiscard]] int mergeOneRound(const MergeInputs& group, const std::string& output);
    [[nodiscard]] int runMerge(MergeFiles& files);

    int32_t m_openFiles = 0;
};

} // namespace kestrine
