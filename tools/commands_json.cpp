// Prints docs/commands.json.
#include <fmt/format.h>

#include "tools/commands.h"

int main() {
    fmt::print("{}\n", catalogue().dump(2));
}
