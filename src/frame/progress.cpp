#include "frame/progress.h"

namespace kestrine {

std::atomic<bool> g_progress{false};
std::atomic<uint32_t> g_longCalls{0};

} // namespace kestrine
