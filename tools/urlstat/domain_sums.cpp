#include "domain_sums.h"

#include "failure.h"
#include "stat_file.h"
#include "storage/url_key.h"
#include "storage/verify.h"

namespace kestrine::viewer {

namespace {

bool isOf(std::string_view host, std::string_view domain) {
    return host.ends_with(domain) &&
           (host.size() == domain.size() || host[host.size() - domain.size() - 1] == '.');
}

bool wasCut(const UrlRecordView& record) {
    return record.url.size() == g_maxHostText && urlKey(asBytes(record.url)) != record.key;
}

} // namespace

DomainSums sumDomains(UrlFile& file, std::span<const std::string> domains) {
    DomainSums sums;
    sums.domains.resize(domains.size());
    VerifyingReader reader(file);
    UrlRecordView record;
    int result = 0;
    while ((result = reader.readOneRecord(record)) == 0) {
        if (wasCut(record)) {
            sums.unknown += record.count;
            continue;
        }
        for (size_t i = 0; i < domains.size(); ++i) {
            if (isOf(record.url, domains[i])) {
                sums.domains[i].visits += record.count;
                ++sums.domains[i].hosts;
            }
        }
    }
    if (result < 0) {
        throw readFailure(file);
    }
    return sums;
}

} // namespace kestrine::viewer
