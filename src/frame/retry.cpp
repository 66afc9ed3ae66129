#include "frame/retry.h"

namespace kestrine {

// Listed is what stays so until somebody changes something. Any other error counts as passing: a
// try in vain costs a pause, a good file taken for unreadable costs its visits.
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
    // Space is waited for where much is written (free_space.h), not here.
    case ENOSPC:
    case EFBIG:
    case EXDEV:
    case ELOOP:
    // The failure was found without the system's help.
    case 0:
        return false;
    default:
        return true;
    }
}

} // namespace kestrine
