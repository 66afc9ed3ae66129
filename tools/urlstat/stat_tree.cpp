#include "stat_tree.h"

#include "failure.h"
#include "frame/configuration.h"
#include "frame/data_path.h"
#include "frame/ini_file.h"
#include "frame/install_root.h"
#include "tree/listing.h"
#include "tree/names.h"

#include <algorithm>
#include <tuple>

namespace kestrine::viewer {

namespace {

std::vector<std::string> directoriesIn(const std::string& directory) {
    std::vector<FindEntry> entries;
    if (Util::listEntries(names::join(directory, "*"), entries, KESTRINE_HERE) != 0) {
        throw Failure(directory + ": cannot be listed; check the permissions");
    }
    std::vector<std::string> found;
    for (const FindEntry& entry : entries) {
        if (Util::isDirectory(entry)) {
            found.push_back(entry.name);
        }
    }
    std::ranges::sort(found);
    return found;
}

std::string logDataAround(const std::string& root) {
    const std::string above(names::parentOf(root));
    return names::lastComponent(above) == "log_data" ? above : "";
}

// The logging product's settings lie in the installation root: PLACE/ml/config/urlstat.ini belongs
// to PLACE/mysql_path.ini, and PLACE/config/urlstat.ini if the service has PLACE named as its root.
// There the settings may lie behind a link, and their relative paths begin.
std::string logDataOf(const std::string& config) {
    const std::string full = slashes(platform().resolvedPath(config));
    const std::string_view install = names::parentOf(names::parentOf(names::parentOf(full)));
    IniFile ini;
    if (ini.load(names::join(install, "mysql_path.ini")) != 0) {
        const std::string place(names::parentOf(names::parentOf(slashes(config))));
        const std::string root = slashes(platform().resolvedPath(place.empty() ? "." : place));
        if (ini.load(names::join(root, "mysql_path.ini")) != 0) {
            return "";
        }
        install::nameRoot(root);
    }
    const std::string path = slashes(std::string(ini.find("mysql", "logdatapath").value_or("")));
    return path.empty() ? "" : names::join(install::settingsPath(path), "log_data");
}

} // namespace

void requireRoot(const std::string& root) {
    FileInfo info;
    if (platform().info(root, info) != 0 || !info.isDirectory) {
        throw Failure(root + ": is no directory; --root DIR names the statistics root");
    }
}

std::string slashes(std::string path) {
    std::ranges::replace(path, '\\', '/');
    while (path.size() > 1 && path.ends_with('/')) {
        path.pop_back();
    }
    return path;
}

TreePlace findTree(const std::string& root, const std::string& config) {
    TreePlace place;
    if (!root.empty()) {
        requireRoot(root);
        place.root = slashes(root);
        place.logData = logDataAround(slashes(platform().resolvedPath(root)));
    } else {
        const std::string file = config.empty() ? install::settingsFile() : config;
        IniFile ini;
        if (ini.load(file) != 0) {
            throw usage(file + ": cannot be read; name the statistics with --root DIR, or the "
                               "service's settings with --config FILE");
        }
        place.logData = logDataOf(file);
        place.root = install::settingsPath(
            slashes(std::string(ini.find(Configuration::g_section, "urlStatRoot").value_or(""))));
        if (place.root.empty() && !place.logData.empty()) {
            place.root = names::defaultStatRoot(place.logData);
        }
        if (place.root.empty()) {
            throw usage(file + ": names no statistics root, and mysql_path.ini no log data; "
                               "use --root DIR");
        }
    }
    return place;
}

std::string StatTree::accountDir(const std::string& account) const {
    return names::accountDir(m_root, account);
}

std::vector<std::string> StatTree::accounts() const {
    std::vector<std::string> accounts;
    for (const std::string& name : directoriesIn(m_root)) {
        if (name == "debug" || name.starts_with("_delete_") || name.starts_with('.')) {
            continue;
        }
        const std::vector<std::string> inside = directoriesIn(accountDir(name));
        const auto belongs = [](const std::string& directory) {
            PeriodDir dir;
            return directory == "new" || names::parsePeriodDir(directory, dir);
        };
        if (std::ranges::any_of(inside, belongs)) {
            accounts.push_back(name);
        }
    }
    return accounts;
}

std::vector<PeriodEntry> StatTree::periods(const std::string& account) const {
    std::vector<PeriodEntry> periods;
    for (const std::string& name : directoriesIn(accountDir(account))) {
        PeriodDir dir;
        if (names::parsePeriodDir(name, dir)) {
            const std::string path = names::join(accountDir(account), name);
            periods.push_back({account, dir, periodFiles(path, dir.period)});
        }
    }
    const auto order = [](const PeriodEntry& entry) {
        return std::tie(entry.dir.period, entry.dir.begin);
    };
    std::ranges::sort(periods, {}, order);
    return periods;
}

std::vector<std::string> chosenAccounts(const StatTree& tree, const std::vector<std::string>& named,
                                        bool all) {
    std::vector<std::string> known = tree.accounts();
    if (known.empty()) {
        throw Failure(tree.root() + ": holds no account; is it the statistics root?");
    }
    for (const std::string& name : named) {
        if (std::ranges::find(known, name) == known.end()) {
            throw Failure(tree.root() + ": has no account " + name +
                          "; \"urlstat periods --all-accounts\" lists them");
        }
    }
    if (!named.empty() || (!all && known.size() == 1)) {
        return named.empty() ? known : named;
    }
    if (!all) {
        throw usage(tree.root() + ": has " + std::to_string(known.size()) +
                    " accounts; choose with --account NAME or --all-accounts");
    }
    return known;
}

const char* periodKindName(Period period) {
    return period == Period::Day ? "day" : period == Period::Week ? "week" : "month";
}

std::string periodName(const PeriodDir& dir) {
    return dir.period == Period::Day ? dateName(dir.begin)
                                     : dateName(dir.begin) + ".." + dateName(dir.end);
}

} // namespace kestrine::viewer
