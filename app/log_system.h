// The connection to syslog is opened here.
#pragma once

// Opens the log under `identity` (kept by the C library, not copied), facility daemon, with a
// copy of every message on standard error when asked for. `level` 0..4 lets through up to
// emergency, error, warning, notice, info; 5 and above everything. Returns the previous priority
// mask, 0 for level 5 and above, which leaves the mask alone.
int AbrirLogSistema(const char* identity, unsigned level, bool log_to_stderr);
