#pragma once

class QThread;

namespace vell::PluginTransportThread {

// The one thread where every plugin's bytes are framed and written, apart from the main
// thread, so that a plugin that floods its output or stops reading its input never stalls the
// user interface. Everything on it is non-blocking and event-driven; a write to a plugin that
// has gone fails with EPIPE there instead of raising SIGPIPE. Started on first use and kept
// for the life of the application.
QThread* instance();

} // namespace vell::PluginTransportThread
