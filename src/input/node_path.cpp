#include "input/node_path.h"

#include "frame/log.h"
#include "frame/tree_names.h"

namespace kestrine {

int getAccountPathAndDate(const std::string& nodePath, int32_t& date) {
    if (nodePath.find('/') == std::string::npos) {
        LOG_ERROR("cannot find / in %s", nodePath.c_str());
        return -1;
    }
    date = names::getDateOfPath(nodePath);
    if (date < 20000000 || date > 29999999) {
        LOG_ERROR("date invalid %d %s", date, nodePath.c_str());
        return -1;
    }
    return 0;
}

} // namespace kestrine
