// Signals that end the command: they interrupt its waiting, so that it cleans up after itself before it goes.
#ifndef QXNEGO_TOOLS_CONNECTION_INTERRUPT_H
#define QXNEGO_TOOLS_CONNECTION_INTERRUPT_H

namespace tools {

// Catches SIGINT and SIGTERM from now on; a call that waits then returns EINTR. The same signal a second time ends the
// process at once.
void interrupt_on_signals();

// The same in a forked process, which gets a signal of its group and that of its parent, and is interrupted once.
void interrupt_forked_on_signals();

// Throws Failure with kExitInterrupted once such a signal has come. To be called around everything that waits.
void throw_if_interrupted();

// A descriptor that can be read from once such a signal has come, in every thread; nobody reads it.
int interrupt_descriptor();

} // namespace tools

#endif
