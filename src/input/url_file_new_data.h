// Which nodes of an account have log files that are not counted yet.
#pragma once

#include "frame/configuration.h"
#include "input/abstract_new_data.h"
#include "storage/status.h"

#include <cstdint>
#include <string>
#include <unordered_set>
#include <vector>

namespace kestrine {

// A node is due when the log file after the one that its progress names exists: the growth of the
// file already reached does not count. Progress is what the day file and the new-day files not yet
// merged into it say; a node that neither knows is due when its file 0 exists. Where they have lost
// what week or month file still know, the node goes on behind the logs that are gone.
class UrlFileNewData : public AbstractNewData {
public:
    explicit UrlFileNewData(const Configuration& configuration) : m_configuration(configuration) {}

    // One status per date with due nodes, dates ascending: the due nodes, ascending by path, with
    // their stored positions (-1, 0 for a new one). With `onlyDate` (eight digits) no other date is
    // looked at. A date with more devices than a status can name is left out, with an error line.
    // 0, or -1 with an empty `out`. A day file that is found damaged gives way to its backup; a
    // damaged new-day file is moved aside, and the call fails.
    [[nodiscard]] int getDayStatusHaveNewData(const std::string& accountPath,
                                              std::vector<DayStatus>& out,
                                              const std::string& onlyDate = {});

    // Takes the node's date into the day list. 0 or -1, never 1.
    [[nodiscard]] int haveNewData(const std::string& nodePath) override;

    // The test of one node, named by its date directory: 1 when its file `fileNumber` + 1 exists, 0
    // when not, -1 when the path is too long.
    [[nodiscard]] int haveNewData(const std::string& nodePath, int32_t fileNumber) const;

    // Visitor of an account directory: adds the date's node of a device to the status, if the
    // status lacks it and its file 0 exists. Always 0: a node whose files cannot be named is
    // reported and left out.
    [[nodiscard]] int devicePathCallBack(const std::string& path, uint32_t attributes,
                                         const std::string& date, DayStatus& status) const;

private:
    [[nodiscard]] int addNewNode(const std::string& datePath);
    [[nodiscard]] int getDaycrcsortPath(const std::string& datePath, std::string& path) const;
    [[nodiscard]] int updateDayStatus(const std::string& path, DayStatus& status) const;
    [[nodiscard]] int updateDayStatusFromNew(const std::string& newDayDirectory,
                                             DayStatus& status) const;
    [[nodiscard]] int updateFromDatFile(const std::string& datePath, DayStatus& status) const;
    [[nodiscard]] int resumeBehindLoss(const std::string& datePath,
                                       const std::string& newDayDirectory, DayStatus& status) const;
    [[nodiscard]] int resumeNode(const std::string& nodePath, DayStatus& status) const;
    [[nodiscard]] int selectDueNodes(const DayStatus& status, DayStatus& due) const;

    const Configuration& m_configuration;
    std::vector<DayStatus> m_dayList;          // in the order in which dates were met
    std::unordered_set<int32_t> m_datesInList; // dates looked at, listed or found empty
};

} // namespace kestrine
