// A byte buffer whose memory is not touched before it is used, so that a large buffer of a small
// file costs address space only.
#pragma once

#include "frame/bytes.h"
#include "platform/pages.h"

#include <cstdint>

namespace kestrine {

using Buffer = PageArray<uint8_t>;

} // namespace kestrine
