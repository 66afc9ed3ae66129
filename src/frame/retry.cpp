#include "frame/retry.h"

namespace kestrine {

bool isPassing(int error) {
    switch (error) {
    case ENOENT:
    case ENOTDIR:
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ESPIPE:
    case ENAMETOOLONG:
    case EINVAL:
    case EEXIST:
    case ENOTEMPTY:
    case ENOSPC:
    case EFBIG:
    case EXDEV:
    case ELOOP:
    case 0:
        return false;
    default:
        return true;
    }
}

} // namespace kestrine
