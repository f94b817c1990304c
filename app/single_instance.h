// A pid file guards against a second instance. It is never locked and never removed.
#pragma once

#include <string>

// Ends the process with status 1 when `pidfile` names a living process; otherwise writes the own
// pid there. An empty path does nothing at all. Trouble with the file is logged, not fatal.
void EvitarMultiplesInstancias(const std::string& pidfile);
