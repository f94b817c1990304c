// Prints docs/commands.json.
#include <fmt/format.h>

#include "zondarctl/commands.h"

int main() {
    fmt::print("{}", zondarctl::catalogue());
}
