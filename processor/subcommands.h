// The parameter write: one parameter of the module, named by the sub-command that the info begins
// with.
#pragma once

struct mensaje;

// What is done before a write that is not refused is carried out; null for nothing.
extern void (*before_write)();

// Carries out a write. The answer stays empty whether it succeeded or not; only a request without
// value or of an unknown sub-command is refused, by a length of its own over zeros.
void write_parameter(const mensaje& request, mensaje& answer);
