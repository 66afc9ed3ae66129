// The files of one merge operation: opened together, closed together, and, where one of them turns
// out to be damaged, set aside.
#pragma once

#include "storage/url_file.h"
#include "tree/directories.h"

#include <cstdint>
#include <deque>
#include <string>
#include <vector>

namespace kestrine {

// What the loss of an input means.
enum class InputKind {
    Temporary, // made again from the logs
    NewDay,    // nothing takes its place
    Formal,    // a day, week or month file: its backup comes back
};

// Inputs of one kind, but the first ones, which other inputs were merged into (merge_rounds.h).
struct MergeInputs {
    std::vector<std::string> paths;
    InputKind kind = InputKind::Temporary;
    size_t temporary = 0;

    [[nodiscard]] InputKind kindOf(size_t i) const {
        return i < temporary ? InputKind::Temporary : kind;
    }
};

// Result besides 0 and -1: the system has no handle for one more file (EMFILE, ENFILE).
constexpr int g_tooFewHandles = 2;

class MergeFiles {
public:
    // `openFiles` counts the files that are open; one whose closing failed stays counted.
    explicit MergeFiles(int32_t& openFiles) : m_openFiles(openFiles) {}
    // An operation that leaves half-way: everything is closed, damaged inputs go to quarantine, the
    // work file is removed. What fails then is reported.
    ~MergeFiles();
    MergeFiles(const MergeFiles&) = delete;
    MergeFiles& operator=(const MergeFiles&) = delete;

    // Opens the current day, week or month file as the first input and reads its status.
    [[nodiscard]] int openSource(const std::string& path, uint32_t statusType);
    // Opens inputs behind those that are open, and the work file that they are merged into. With
    // too few handles for all of them none is opened: g_tooFewHandles.
    [[nodiscard]] int openFileList(const MergeInputs& inputs, const std::string& work);
    [[nodiscard]] int openOutput(const std::string& work);
    // Of every input whose status was not read yet: the source's may be another.
    [[nodiscard]] int readDayStatus();

    // The output carries its status already: synced if wanted, and everything closed.
    [[nodiscard]] int closeOutput(Durable durable);
    [[nodiscard]] int closeUrlFiles();
    // The work file, closed, is complete and stays: under its name, or under a final one.
    void keepOutput() { m_work.clear(); }
    [[nodiscard]] int renameOutput(const std::string& to);
    // After a stop: everything closed, the work file gone. 1, no output; -1.
    [[nodiscard]] int stopAndReturn();

    [[nodiscard]] UrlFile& output() { return m_output; }
    [[nodiscard]] std::vector<UrlFile*> inputs();

private:
    struct Input {
        UrlFile file;
        InputKind kind;
    };

    [[nodiscard]] int openInput(const std::string& path, InputKind kind);
    [[nodiscard]] int closeOne(UrlFile& file);
    [[nodiscard]] int removeBrokenUrlFiles();

    int32_t& m_openFiles;
    std::deque<Input> m_inputs;
    UrlFile m_output;
    std::string m_work; // to be removed
};

// Removes a file if it is there. 0 or -1.
[[nodiscard]] int removeWorkFile(const std::string& path);

} // namespace kestrine
