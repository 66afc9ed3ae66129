// How a stop request reaches the service.
#pragma once

namespace kestrine {

// Handler of signals 2 and 15: clears the run flag, tells the supervisor, and reports the signal.
// Any other number changes nothing.
void signal_handler(int number);

// Waits, not for ever, until the handlers that have begun have reported their signals.
void waitForSignalHandlers();

} // namespace kestrine
