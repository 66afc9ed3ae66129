// Which accounts there are, and the walk over one account's log data.
#pragma once

#include <string>
#include <vector>

namespace kestrine {

// Walks DATA/ACCOUNT/devid_N/DATE/A and asks `haveNewData` about each type directory.
class AbstractNewData {
public:
    virtual ~AbstractNewData() = default;

    // Asked for the path of each type directory: 1 when it holds unprocessed data, 0 when not, -1
    // on failure. This one only reports that it should have been overridden.
    [[nodiscard]] virtual int haveNewData(const std::string& nodePath);

    // The account file, whether it is there or not. 0 or -1.
    [[nodiscard]] static int getAccountFilePath(std::string& path);
    // The account paths below the data path, in the order of the account file; none when there is
    // no such file. Left out, with an error line: an account whose directory name would not do in
    // the statistics tree, or would be that of an account before it. 0 or -1.
    [[nodiscard]] static int getAllAccounts(std::vector<std::string>& accounts);

    // Rebuilds the node list for one account; with `onlyDate` (eight digits) of that date alone,
    // for which no device's dates are listed. 0, or -1 when a listing or `haveNewData` failed.
    [[nodiscard]] int getAllNews(const std::string& accountPath, const std::string& onlyDate = {});

    // Type directories for which `haveNewData` answered 1, ascending.
    [[nodiscard]] const std::vector<std::string>& newNodes() const { return m_newNodes; }

    // ---- the steps of getAllNews, each 0 or -1
    // Device directories of the account, ascending.
    [[nodiscard]] int getAllDevice(const std::string& accountPath,
                                   std::vector<std::string>* devices);
    // Every date and type of a device.
    [[nodiscard]] int getAllTypes(const std::string& devicePath);
    // Every type of one entry of a device directory, if its name is a date.
    [[nodiscard]] int tryInsert(const std::string& devicePath, const std::string& name);
    [[nodiscard]] int tryInsertOneType(const std::string& devicePath, const std::string& date,
                                       char type);

private:
    std::vector<std::string> m_newNodes;
};

} // namespace kestrine
