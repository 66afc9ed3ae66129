#include "storage/verify.h"

#include "frame/log.h"
#include "storage/url_file.h"

namespace kestrine {

int verifyUrlFile(const std::string& path, uint32_t statusType) {
    UrlFile file;
    if (file.open(path, OpenMode::Read) != 0) {
        LOG_ERROR("open %s fail", path.c_str());
        return -1;
    }
    if (file.readStatus(statusType) != 0) {
        return 1;
    }
    UrlRecordView record;
    int ret = 0;
    bool first = true;
    uint64_t lastKey = 0;
    while ((ret = file.readOneRecord(record)) == 0) {
        if (!first && record.key <= lastKey) {
            LOG_ERROR("keys of %s not ascending", path.c_str());
            return 1;
        }
        first = false;
        lastKey = record.key;
    }
    return ret == 1 ? 0 : 1;
}

} // namespace kestrine
