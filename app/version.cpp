#include "app/version.h"

#include <cstdio>
#include <cstdlib>

void MostrarVersionSalir(const std::string& version) {
    std::printf("\nVersion: %s\nCompilation date: %s\nTime: %s\n", version.c_str(), __DATE__,
                __TIME__);
    std::exit(0);
}
