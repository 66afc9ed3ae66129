// The disk temporary files of a pass, grouped by the date that they belong to, and their merge into
// numbered new-day files.
#pragma once

#include "frame/configuration.h"
#include "storage/status.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kestrine {

class DiskTempFileList {
public:
    explicit DiskTempFileList(const Configuration& configuration)
        : m_configuration(configuration) {}

    // Adds a file to its date's item; an empty path stands for a date whose logs held no URL. The
    // new counter of the date's first status is the highest new-day number used so far. A date has
    // one item, whatever comes in between: its files must become one new-day file, since a part of
    // them does not hold what their positions say.
    void add(const std::string& path, const DayStatus& status);
    // Merges every date's files into its next new-day file (date_ledger.h) and removes them. A date
    // whose day file or new-day files are not those from which its positions were read hands
    // nothing on. 0; 1 when a stop was requested (what remains stays in the list); -1. A kill
    // leaves, per date, either the files or the complete new-day file (and perhaps files too, which
    // start-up removes).
    [[nodiscard]] int mergeDiskTempFile();
    // Removes a date's item and its files, so that the date hands nothing on.
    void dropDate(int32_t date);

    [[nodiscard]] bool empty() const { return m_items.empty(); }

    // Number of the next new-day file of a date, by its directory in the "new" tree. 0; 1 when
    // `used`, the highest number when its positions were read, is not the highest any more, so that
    // they describe other files than these; -1.
    [[nodiscard]] static int getNextNewCounter(const std::string& directory, int32_t used,
                                               int32_t& counter);

private:
    struct Item {
        DayStatus status;
        int32_t used = -1; // highest new-day number when the positions were read
        std::vector<std::string> paths;
    };

    [[nodiscard]] int mergeItem(Item& item);
    [[nodiscard]] int getCrcsortPath(const Item* item, std::string& directory) const;
    [[nodiscard]] static int removeAllDiskTempFIles(const Item& item);

    const Configuration& m_configuration;
    std::vector<Item> m_items;
};

} // namespace kestrine
