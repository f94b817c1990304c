// The option -v prints this.
#pragma once

#include <string>

// Prints the version and the time of the build on standard output, ends the process with 0.
[[noreturn]] void MostrarVersionSalir(const std::string& version);
