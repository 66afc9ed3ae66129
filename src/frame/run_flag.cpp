#include "frame/run_flag.h"

namespace kestrine {

std::atomic<int32_t> g_isRunning{0};

} // namespace kestrine
