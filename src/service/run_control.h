// How a stop request reaches the service.
#pragma once

namespace kestrine {

// Handler of signals 2 and 15: reports the signal and clears the run flag. Any other number changes
// nothing.
void signal_handler(int number);

} // namespace kestrine
