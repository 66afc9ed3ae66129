#include "hosts.h"

#include "measure.h"
#include "storage/url_file.h"
#include "storage/url_key.h"
#include "worldgen/hosts.h"

#include <algorithm>

namespace kestrine::bench {

namespace {

constexpr uint32_t g_types = 4;

} // namespace

std::vector<Host> makeHosts(uint32_t number) {
    const worldgen::HostCatalog catalog(number, g_types, 0);
    std::vector<Host> hosts(number);
    for (uint32_t i = 0; i < number; ++i) {
        const std::string_view name = catalog.name(i);
        hosts[i] = {std::string(name), urlKey(asBytes(name)), 1 + number / (i + 1),
                    catalog.type(i)};
    }
    std::ranges::sort(hosts, {}, &Host::key);
    return hosts;
}

void writeHostFile(const std::string& path, const std::vector<const Host*>& hosts,
                   const std::string& date) {
    UrlFile file;
    require(file.open(path, OpenMode::Truncate) == 0, "open a file for hosts");
    for (const Host* host : hosts) {
        require(file.writeOneRecord(host->view()) == 0, "write a host");
    }
    DayStatus status = someStatus(date);
    status.setTotalCount(file.totalCount());
    require(file.writeStatus(status) == 0 && file.close() == 0, "finish a file of hosts");
}

DayStatus someStatus(const std::string& date) {
    DayStatus status;
    status.entries().push_back({std::string(g_account) + "/devid_1/" + date, 0, 28});
    return status;
}

} // namespace kestrine::bench
