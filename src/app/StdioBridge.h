#pragma once

#include <QtGlobal>

// `tovren mcp`: carries an assistant's standard input to the running listener and the
// listener's replies to standard output, for machines without `nc`. Needs no display, opens
// no store and takes no lock, so it runs beside the application that serves it.
namespace StdioBridge {

// Relays until Tovren closes; the end of input is passed on as the end of what Tovren is sent,
// and its answers still come through after it. Returns the process's exit status: 0 after a normal
// end, 1 with a line on standard error when nothing listens or the connection fails.
int run(quint16 port, int inputFd = 0, int outputFd = 1);

} // namespace StdioBridge
