// How the system says that nobody reads what is written.
#pragma once

namespace kestrine {

// Whether the error number of a write to a pipe means that its reader is gone.
[[nodiscard]] bool isClosedPipe(int error);

} // namespace kestrine
