#include "input/node_path.h"

#include "frame/log.h"
#include "tree/names.h"

namespace kestrine {

int getAccountPathAndDate(const std::string& nodePath, int32_t& date) {
    if (nodePath.find('/') == std::string::npos) {
        return LOG_FAIL("cannot find / in %s", nodePath.c_str());
    }
    date = names::getDateOfPath(nodePath);
    if (date < 20000000 || date > 29999999) {
        return LOG_FAIL("date invalid %d %s", date, nodePath.c_str());
    }
    return 0;
}

} // namespace kestrine
