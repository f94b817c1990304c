// The processor's cycle: one request in, at most one answer out.
#pragma once

// Opens the transport as server number 0 and reads the device's identity. Always 0; a transport
// that cannot be opened ends the process.
int zondar_process_init();

// One cycle; returns when a request has been answered or none came. Sets `*received` on a valid
// request and never clears it: the watchdog thread reads it meanwhile. Main thread only.
void zondar_process(bool* received);
