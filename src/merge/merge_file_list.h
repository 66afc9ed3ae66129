// Merging of sorted URL files: the engine, and the operations that set up its inputs and outputs.
//
// Every operation writes under a temporary name and renames the finished output into place. A kill
// leaves nothing changed, a work file (name ending in ".temp" or ".temp.temp") that the next pass
// or start-up removes, or the complete output with its status.
//
// Results: 0 output written; 1 no output (nothing to do, or a stop was requested), nothing changed;
// -1 failure, damaged inputs set aside and, where there is one, replaced by their backup.
#pragma once

#include "frame/buffer.h"
#include "merge/merge_heap.h"
#include "storage/status.h"
#include "storage/url_file.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace kestrine {

class MergeFileList {
public:
    // Most files that a merge has open at once; more inputs are merged in rounds. Below what the C
    // runtimes allow, and a bound on the block buffers in memory.
    static constexpr size_t g_maxOpenInputs = 128;

    MergeFileList() = default;
    ~MergeFileList();
    MergeFileList(const MergeFileList&) = delete;
    MergeFileList& operator=(const MergeFileList&) = delete;

    // ---- operations
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

    // ---- the engine (merge_engine.cpp)
    // Merges open inputs, positioned before their first block, into the open output. 0 when all is
    // written, and also when it stopped because a stop was requested: the output is then incomplete
    // and the caller drops it. -1 on failure.
    [[nodiscard]] int commonMergeProcess(UrlFile* output, const std::vector<UrlFile*>& inputs);

private:
    // ---- engine
    [[nodiscard]] int tryAllocMemory(size_t count);
    [[nodiscard]] int initMergeMinHeap(const std::vector<UrlFile*>& inputs, MergeHeap& heap);
    [[nodiscard]] int isSmallerThanOthers(const MergeEntry* top) const;
    [[nodiscard]] bool foldFits(const MergeEntry& entry) const;
    [[nodiscard]] int checkSpaceAndStop(const std::string& output, bool& stop);
    [[nodiscard]] int mergeStep(MergeEntry* entry, UrlFile& output, MergeHeap& heap);
    [[nodiscard]] int copyBlock(MergeEntry* entry, UrlFile& output, MergeHeap& heap);
    [[nodiscard]] int decompressBlock(MergeEntry* entry);
    [[nodiscard]] int dealUnCompress(MergeEntry* entry, UrlFile& output, MergeHeap& heap);
    [[nodiscard]] int mergeMinKeyAndWriteOutBlock(MergeEntry* entry, UrlFile& output,
                                                  MergeHeap& heap);
    [[nodiscard]] int writeCompressData(MergeEntry* entry, UrlFile& output, MergeHeap& heap);
    [[nodiscard]] int pushNextKey(MergeEntry* entry, MergeHeap& heap);
    [[nodiscard]] int pushNextkeyFromHeader(MergeEntry* entry, MergeHeap& heap);
    [[nodiscard]] int writePending(UrlFile& output);
    void setPending(const UrlRecordView& record);
    [[nodiscard]] UrlRecordView pendingRecord() const;

    // ---- files of an operation (merge_files.cpp)
    [[nodiscard]] int openInput(const std::string& path);
    [[nodiscard]] int openFileList(const std::vector<std::string>& inputs,
                                   const std::string& output);
    [[nodiscard]] int readDayStatus();
    [[nodiscard]] int closeUrlFiles();
    [[nodiscard]] int removeBrokenUrlFiles();
    [[nodiscard]] int removeOneBrokenFile(const std::string& path);
    [[nodiscard]] int removeWorkFile(const std::string& path);
    [[nodiscard]] int runMerge(const std::string& workPath);
    [[nodiscard]] int closeOutput(const std::string& workPath, bool durable);
    [[nodiscard]] static int syncDirectoryOf(const std::string& path);
    int abandon(const std::string& workPath);
    int stopAndReturn(const std::string& workPath);
    [[nodiscard]] int deleteTopnDir(const std::string& directory);

    // ---- merges of very many inputs (merge_rounds.cpp)
    [[nodiscard]] int reduceInputs(const std::vector<std::string>& inputs,
                                   const std::string& directory, std::vector<std::string>& reduced);
    [[nodiscard]] int mergeOneRound(const std::vector<std::string>& inputs,
                                    const std::string& output);
    void removeRoundFiles();

    // ---- steps of the operations
    [[nodiscard]] int mergeTemps(const std::vector<std::string>& inputs, const DayStatus& status,
                                 const std::string& output, bool durable);
    [[nodiscard]] int createEmptyDaycrcsortNew(const std::string& path, const DayStatus& status);
    [[nodiscard]] int openSourceDayFile(const std::string& path,
                                        std::vector<std::string>& newFiles);
    [[nodiscard]] int openSourceWeekMonFile(const std::string& path,
                                            std::vector<std::string>& newFiles);
    [[nodiscard]] int getNewDayStatus(DayStatus& status);
    [[nodiscard]] int prepareInputs(const std::vector<std::string>& files, const std::string& work,
                                    const std::string& finalPath);
    [[nodiscard]] int updateWeekMonStatus(const std::vector<std::string>& newFiles);
    [[nodiscard]] int takeDayCounters();
    void validateTotalCount(uint64_t outputTotal) const;
    [[nodiscard]] int finishPeriod(const std::string& workPath, const std::string& finalPath);

    std::vector<MergeEntry> m_entries;
    uint32_t m_entryCount = 0;
    bool m_pending = false;
    Buffer m_pendingRecord; // room for one record while its count is summed over the inputs
    size_t m_pendingSize = 0;
    bool m_checkedBefore = false;
    uint32_t m_lastCheck = 0; // tick of the last space and stop test

    std::vector<std::unique_ptr<UrlFile>> m_inputs;
    std::unique_ptr<UrlFile> m_output;
    int32_t m_openFiles = 0;
    DayStatus m_dayStatus;
    WeekMonStatus m_weekMonStatus;
    std::vector<std::string> m_roundFiles;
    std::string m_roundDirectory;
};

// ---- what decides that nothing is counted twice (merge_pruning.cpp)

// Drops the new-day files whose number is not above the day status' new counter.
void removeOldPathForDaycrcsort(const DayStatus& status, std::vector<std::string>& newFiles);
// Drops those whose number is not above the counter recorded for their date.
void removeOldPathForWeekMon(WeekMonStatus& status, std::vector<std::string>& newFiles);
// The highest number of the files becomes the status' new counter. 0, or -1 for a path that is none
// of a new-day file.
[[nodiscard]] int updateDayNewCounter(const std::vector<std::string>& newFiles, DayStatus& status);
// Records that the file of this number, of the date whose "new" directory is given, was folded in.
void updateWeekMonStatusIFNewer(WeekMonStatus& status, const std::string& datePath, int32_t number);

} // namespace kestrine
